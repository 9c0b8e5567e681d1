#include "base/Uuid.hpp"

#include <uuid/uuid.h>

namespace quorvane {

std::string newUUID() {
    uuid_t value;
    uuid_generate_random(value);
    char text[37];
    uuid_unparse_upper(value, text);
    return std::string(text);
}

}  // namespace quorvane
