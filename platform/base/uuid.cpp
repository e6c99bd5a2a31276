#include "tq/platform/base/uuid.h"

#include <uuid/uuid.h>

namespace tq {

String uuidString() {
  uuid_t id;
  uuid_generate_random(id);
  char text[37];
  uuid_unparse_upper(id, text);
  return String::fromASCII(std::string_view(text, 36));
}

}  // namespace tq
