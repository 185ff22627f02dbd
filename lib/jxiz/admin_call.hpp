// An administration command over a connection, for the control tool (jxqm
// define, alter and undefine while the queue manager runs): the queue
// manager answers it only for an administrator's connection (else 2035).
#pragma once

#include <jx/jxqm.h>

#include "qm_protocol.hpp"

JXQM_EXPORT void zstAdminCommand(int32_t hconn, const jxqp::AdminRequest &request,
                                 jxqp::AdminReply &reply);
