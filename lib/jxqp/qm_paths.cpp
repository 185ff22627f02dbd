#include "qm_paths.hpp"

#include <jx/jxcs.h>
#include <jx/jxqm.h>

#include <cstring>

namespace jxqp {

std::string qmgrDir(std::string_view name) {
  return std::string(xcsDataRoot()) + "/" + kQMgrsFolder + "/" + std::string(name);
}

bool validQMgrName(std::string_view name) {
  if (name.empty() || name.size() > JX_Q_MGR_NAME_LENGTH) return false;
  for (char c : name) {
    bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
              c == '.' || c == '_' || c == '%';
    if (!ok) return false;
  }
  return name != "." && name != "..";
}

std::string fieldString(const char *field, size_t width) {
  size_t n = strnlen(field, width);
  while (n > 0 && field[n - 1] == ' ') --n;
  return std::string(field, n);
}

void setField(char *field, size_t width, std::string_view s) {
  std::memset(field, 0, width);
  std::memcpy(field, s.data(), s.size() < width ? s.size() : width);
}

}  // namespace jxqp
