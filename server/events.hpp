// Events: PCF messages the queue manager puts on its event queues when
// something noteworthy happens, if the queue manager's switch for their
// category is on. Performance events watch queue depths, queue-manager
// events refusals, configuration events changes made by commands.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "attributes.hpp"
#include "pcf_codec.hpp"

namespace jxqm {

class QueueManager;
struct Queue;
struct Identity;

class Events {
 public:
  explicit Events(QueueManager &qm) : qm_(qm) {}

  // After a put: depth high, when it is armed and the depth reached its
  // limit; it then disarms itself and arms depth low.
  void afterPut(Queue &q);
  // After a get: depth low, the mirror image.
  void afterGet(Queue &q);
  // A put refused with 2053.
  void queueFull(Queue &q);
  // A refusal with 2035: of a command, an open or a put.
  void notAuthorised(const Identity &who, std::string_view object, std::string_view operation);
  // A command changed an object.
  void configuration(int32_t reason, std::string_view queue, const Identity &who);

 private:
  void depthEvent(Queue &q, int32_t reason);
  void performance(Queue &q, int32_t reason);
  void emit(const char *queue, int32_t category, int32_t reason, AttrList values);
  bool switchedOn(int32_t selector) const;

  QueueManager &qm_;
  PcfCodec codec_;
  // An event's own put never causes another event.
  bool emitting_ = false;
};

}  // namespace jxqm
