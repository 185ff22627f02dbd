// Shared main for every suite: each run gets a fresh data root, so failure
// records and trace files of one suite never mix with another's.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  char root[] = "/tmp/jxtest.XXXXXX";
  if (!mkdtemp(root)) return 2;
  setenv("JX_DATA_PATH", root, 1);
  int rc = RUN_ALL_TESTS();
  if (rc == 0 && !getenv("JX_KEEP_DATA")) std::filesystem::remove_all(root);
  return rc;
}
