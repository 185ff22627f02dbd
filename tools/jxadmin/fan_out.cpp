#include "fan_out.hpp"

namespace jxadmin {

std::vector<Outcome> runEverywhere(const std::vector<Target> &targets,
                                   const Credentials &credentials, const SessionWork &work) {
  return forEach<Outcome>(targets.size(), [&](size_t k) {
    Session session;
    if (int32_t reason = session.connect(targets[k], credentials)) {
      Outcome failed;
      failed.qmgr = targets[k].label();
      failed.failures.push_back({reason, 0});
      return failed;
    }
    return work(session);
  });
}

}  // namespace jxadmin
