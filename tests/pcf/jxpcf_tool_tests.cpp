// The message dump tool: header and items of a good message, and the reason
// and offset of a malformed one with a non-zero exit status.
#include <stdio.h>
#include <sys/wait.h>

#include <fstream>
#include <string>

#include "child_program.hpp"
#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

struct ToolRun {
  int status = -1;
  std::string out;
};

ToolRun jxpcf(const Bytes &message, bool viaStdin = false) {
  const std::string path = std::string(getenv("JX_DATA_PATH")) + "/message.pcf";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(message.data()),
             static_cast<std::streamsize>(message.size()));
  const std::string command =
      jxtest::programCommand(JXPCF_PATH) + (viaStdin ? " < " : " ") + path + " 2>&1";
  ToolRun r;
  FILE *p = popen(command.c_str(), "r");
  char buffer[256];
  while (fgets(buffer, sizeof buffer, p)) r.out += buffer;
  const int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

TEST(Jxpcf, PrintsHeaderFieldsAndItems) {
  Msg m = Msg()
              .header(2, 13, 3, 1, 1, 0, 0)
              .string(2016, "Q\"1\x01", 850)
              .intList(1002, {20, 2016})
              .integer(20, -1);
  for (bool viaStdin : {false, true}) {
    ToolRun r = jxpcf(m.data, viaStdin);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "Type            2\n"
              "Command         13\n"
              "MsgSeqNumber    1\n"
              "Control         1\n"
              "CompCode        0\n"
              "Reason          0\n"
              "ParameterCount  3\n"
              "2016     string  ccsid 850 length 4 \"Q\\\"1\\x01\"\n"
              "1002     integer 20\n"
              "1002     integer 2016\n"
              "20       integer -1\n");
  }
}

TEST(Jxpcf, MalformedMessageGivesReasonAndOffset) {
  Msg badThird = Msg()
                     .header(8, 0, 4)
                     .integer(5, 1)
                     .string(2001, "AB")
                     .integer(6, 2)
                     .patch(36 + 16 + 24 + 4, 20);
  badThird.fill(4, 0);
  ToolRun r = jxpcf(badThird.data);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out,
            "jxpcf: malformed message: reason 2303 (malformed PCF message) at offset 76 of "
            "96 bytes\n");

  r = jxpcf(Msg().header(8, 0, 1).patch(8, 2).data);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("reason 2303 (malformed PCF message) at offset 0 of 36 bytes"),
            std::string::npos);

  r = jxpcf(Msg().header(8, 0, 2).integer(7, 1).string(7, "x").data);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("reason 2313"), std::string::npos);
  EXPECT_NE(r.out.find("at offset 52 "), std::string::npos);
}

}  // namespace
