// The administration calls in-process: every refusal with its reason and
// parameter and nothing changed by it, definitions that survive a restart,
// generic names, and the queue manager's own settings.
#include <functional>

#include "core_fixture.hpp"

namespace {

using coretest::Core;
using jxqm::AdminResult;
using jxqm::AttrList;

class Administration : public Core {
 protected:
  void SetUp() override {
    Core::SetUp();
    create("Q1", {{JXIA_MAX_Q_DEPTH, 10, {}}});
    create("FULL");
    create("OPEN");
    create("SYSTEM.Q");
    create("M1", {}, JXQT_MODEL);
    jxqm::Session &s = session();
    const int32_t full = open(s, "FULL", JXOO_OUTPUT);
    put(s, full, "a message");
    s.close({full, JXCO_NONE});
    open(s, "OPEN", JXOO_INQUIRE);
  }
  // What a refusal must leave alone: the names and Q1's definition.
  std::string snapshot() {
    std::vector<std::string> names;
    admin_->queueNames("*", 0, names);
    std::string out;
    for (const std::string &n : names) out += n + ";";
    AttrList q1;
    admin_->inquireQueue("Q1", {}, q1);
    for (const jxqm::AttrValue &v : q1)
      if (v.selector != JXIA_TIME_SINCE_RESET) out += std::to_string(v.number) + v.text + ";";
    return out;
  }
};

using Call = std::function<AdminResult(jxqm::Administration &)>;
Call creating(std::string name, int32_t type, AttrList attrs = {}, bool replace = false) {
  return [=](jxqm::Administration &a) { return a.createQueue(name, type, attrs, replace); };
}
Call changing(std::string name, int32_t type, AttrList attrs = {}) {
  return [=](jxqm::Administration &a) { return a.changeQueue(name, type, attrs); };
}
Call copying(std::string from, std::string to, int32_t type) {
  return [=](jxqm::Administration &a) { return a.copyQueue(from, to, type, {}); };
}

TEST_F(Administration, RefusalsNameTheirReasonAndParameterAndChangeNothing) {
  std::vector<std::string> names;
  AttrList out;
  JXMD md = JXMD_DEFAULT;
  const struct {
    const char *what;
    Call call;
    int32_t reason, parameter;
  } rows[] = {
      {"bad name", creating("bad name", JXQT_LOCAL), JXRCCF_PARM_VALUE, JXCA_Q_NAME},
      {"bad type", creating("NEW", 3), JXRCCF_PARM_VALUE, JXIA_Q_TYPE},
      {"exists", creating("Q1", JXQT_LOCAL), JXRC_OBJECT_ALREADY_EXISTS, 0},
      {"replace as another type", creating("Q1", JXQT_MODEL, {}, true), JXRCCF_PARM_VALUE,
       JXIA_Q_TYPE},
      {"unknown attribute", creating("NEW", JXQT_LOCAL, {{1999, 1, {}}}), JXRCCF_PARM_NOT_ALLOWED,
       1999},
      {"status attribute", creating("NEW", JXQT_LOCAL, {{JXIA_CURRENT_Q_DEPTH, 1, {}}}),
       JXRCCF_PARM_NOT_ALLOWED, JXIA_CURRENT_Q_DEPTH},
      {"type as an attribute", creating("NEW", JXQT_LOCAL, {{JXIA_Q_TYPE, 2, {}}}),
       JXRCCF_PARM_VALUE, JXIA_Q_TYPE},
      {"out of range", creating("NEW", JXQT_LOCAL, {{JXIA_MAX_Q_DEPTH, -1, {}}}), JXRCCF_PARM_VALUE,
       JXIA_MAX_Q_DEPTH},
      {"too long",
       creating("NEW", JXQT_LOCAL, {{JXCA_Q_DESC, 0, std::string(JX_Q_DESC_LENGTH + 1, 'd')}}),
       JXRCCF_PARM_VALUE, JXCA_Q_DESC},
      {"dynamic local", creating("NEW", JXQT_LOCAL, {{JXIA_DEFINITION_TYPE, 2, {}}}),
       JXRCCF_PARM_VALUE, JXIA_DEFINITION_TYPE},
      {"predefined model", creating("NEW", JXQT_MODEL, {{JXIA_DEFINITION_TYPE, 1, {}}}),
       JXRCCF_PARM_VALUE, JXIA_DEFINITION_TYPE},
      {"change missing", changing("NONE", JXQT_LOCAL), JXRC_UNKNOWN_OBJECT_NAME, 0},
      {"change another type", changing("Q1", JXQT_MODEL), JXRCCF_PARM_VALUE, JXIA_Q_TYPE},
      {"change fixed", changing("Q1", JXQT_LOCAL, {{JXIA_DEFINITION_TYPE, 1, {}}}),
       JXRCCF_PARM_NOT_ALLOWED, JXIA_DEFINITION_TYPE},
      {"change half bad",
       changing("Q1", JXQT_LOCAL, {{JXIA_INHIBIT_PUT, 1, {}}, {JXIA_INHIBIT_GET, 2, {}}}),
       JXRCCF_PARM_VALUE, JXIA_INHIBIT_GET},
      {"copy missing", copying("NONE", "NEW", JXQT_LOCAL), JXRC_UNKNOWN_OBJECT_NAME, 0},
      {"copy as another type", copying("Q1", "NEW", JXQT_MODEL), JXRCCF_PARM_VALUE, JXIA_Q_TYPE},
      {"copy to bad name", copying("Q1", "b d", JXQT_LOCAL), JXRCCF_PARM_VALUE,
       JXSEL_TO_QUEUE_NAME},
      {"copy onto a queue", copying("Q1", "FULL", JXQT_LOCAL), JXRC_OBJECT_ALREADY_EXISTS, 0},
      {"delete missing", [](auto &a) { return a.deleteQueue("NONE", true); },
       JXRC_UNKNOWN_OBJECT_NAME, 0},
      {"delete system", [](auto &a) { return a.deleteQueue("SYSTEM.Q", true); }, JXRCCF_PARM_VALUE,
       JXCA_Q_NAME},
      {"delete open", [](auto &a) { return a.deleteQueue("OPEN", true); }, JXRC_OBJECT_IN_USE, 0},
      {"delete not empty", [](auto &a) { return a.deleteQueue("FULL", false); }, JXRC_Q_NOT_EMPTY,
       0},
      {"clear missing", [](auto &a) { return a.clearQueue("NONE"); }, JXRC_UNKNOWN_OBJECT_NAME, 0},
      {"clear open", [](auto &a) { return a.clearQueue("OPEN"); }, JXRC_OBJECT_IN_USE, 0},
      {"bad generic name", [&](auto &a) { return a.queueNames("a b*", 0, names); },
       JXRCCF_PARM_VALUE, JXCA_Q_NAME},
      {"names of a bad type", [&](auto &a) { return a.queueNames("*", 9, names); },
       JXRCCF_PARM_VALUE, JXIA_Q_TYPE},
      {"inquire unknown", [&](auto &a) { return a.inquireQueue("Q1", {1999}, out); },
       JXRCCF_PARM_VALUE, 1999},
      {"inquire missing", [&](auto &a) { return a.inquireQueue("NONE", {}, out); },
       JXRC_UNKNOWN_OBJECT_NAME, 0},
      {"put to a model", [&](auto &a) { return a.putMessage("M1", md, "x"); },
       JXRC_OPTION_NOT_VALID_FOR_TYPE, 0},
      {"settings out of range",
       [](auto &a) {
         return a.changeQueueManager({{JXIA_AUTHORITY_EVENT, 2, {}}});
       },
       JXRCCF_PARM_VALUE, JXIA_AUTHORITY_EVENT},
      {"settings not settable",
       [](auto &a) {
         return a.changeQueueManager({{JXIA_Q_COUNT, 2, {}}});
       },
       JXRCCF_PARM_NOT_ALLOWED, JXIA_Q_COUNT},
      {"stop unknown", [](auto &a) { return a.stopConnection("0000000000000000"); },
       JXRC_UNKNOWN_OBJECT_NAME, 0},
  };
  const std::string before = snapshot();
  for (const auto &r : rows) {
    AdminResult got = r.call(*admin_);
    EXPECT_EQ(got.cc, JXCC_FAILED) << r.what;
    EXPECT_EQ(got.rc, r.reason) << r.what;
    EXPECT_EQ(got.parameter, r.parameter) << r.what;
    EXPECT_EQ(snapshot(), before) << r.what;
  }
}

TEST_F(Administration, DefinitionsSurviveARestartWithTheirMessages) {
  ASSERT_TRUE(admin_->changeQueue("Q1", 0, {{JXIA_Q_DEPTH_HIGH_LIMIT, 90, {}}}).ok());
  ASSERT_TRUE(admin_->copyQueue("Q1", "COPY", JXQT_LOCAL, {{JXCA_Q_DESC, 0, "a copy"}}).ok());
  ASSERT_TRUE(admin_->createQueue("FULL", JXQT_LOCAL, {{JXIA_INHIBIT_GET, 1, {}}}, true).ok());
  ASSERT_TRUE(
      admin_->changeQueueManager({{JXCA_Q_MGR_DESC, 0, "core"}, {JXIA_CONFIGURATION_EVENT, 1, {}}})
          .ok());
  JXMD md = JXMD_DEFAULT;
  md.Persistence = JXPER_PERSISTENT;
  ASSERT_TRUE(admin_->putMessage("Q1", md, "kept").ok());
  restart();
  EXPECT_EQ(attribute("COPY", JXIA_MAX_Q_DEPTH).number, 10) << "copied";
  EXPECT_EQ(attribute("COPY", JXIA_Q_DEPTH_HIGH_LIMIT).number, 90);
  EXPECT_EQ(attribute("COPY", JXCA_Q_DESC).text.substr(0, 7), "a copy ");
  EXPECT_EQ(attribute("FULL", JXIA_CURRENT_Q_DEPTH).number, 0) << "not persistent";
  EXPECT_EQ(attribute("FULL", JXIA_INHIBIT_GET).number, 1) << "replaced";
  EXPECT_EQ(attribute("FULL", JXIA_MAX_Q_DEPTH).number, 5000) << "replaced from the defaults";
  EXPECT_EQ(attribute("Q1", JXIA_CURRENT_Q_DEPTH).number, 1);
  AttrList settings;
  ASSERT_TRUE(
      admin_
          ->inquireQueueManager({JXIA_CONFIGURATION_EVENT, JXCA_Q_MGR_DESC, JXIA_Q_COUNT}, settings)
          .ok());
  EXPECT_EQ(settings[0].number, 1);
  EXPECT_EQ(settings[1].text.substr(0, 5), "core ");
  EXPECT_EQ(settings[2].number, 6);

  ASSERT_TRUE(admin_->clearQueue("Q1").ok());
  ASSERT_TRUE(admin_->deleteQueue("COPY", false).ok());
  restart();
  EXPECT_EQ(attribute("Q1", JXIA_CURRENT_Q_DEPTH).number, 0) << "cleared for good";
  AttrList out;
  EXPECT_EQ(admin_->inquireQueue("COPY", {}, out).rc, JXRC_UNKNOWN_OBJECT_NAME);
}

TEST_F(Administration, GenericNamesMatchPrefixesInOrder) {
  create("Q2");
  create("Q10");
  const struct {
    const char *generic;
    int32_t type;
    std::vector<std::string> names;
  } rows[] = {
      {"Q*", 0, {"Q1", "Q10", "Q2"}},
      {"Q1*", 0, {"Q1", "Q10"}},
      {"Q1", 0, {"Q1"}},
      {"Q", 0, {}},
      {"*", JXQT_MODEL, {"M1"}},
      {"M*", JXQT_LOCAL, {}},
      {"*", 0, {"FULL", "M1", "OPEN", "Q1", "Q10", "Q2", "SYSTEM.Q"}},
  };
  for (const auto &r : rows) {
    std::vector<std::string> names = {"left over"};
    ASSERT_TRUE(admin_->queueNames(r.generic, r.type, names).ok()) << r.generic;
    EXPECT_EQ(names, r.names) << r.generic << " type " << r.type;
  }
}

}  // namespace
