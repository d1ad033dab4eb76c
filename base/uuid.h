#pragma once

#include <string>

namespace halvora {

// A new random UUID in canonical upper-case 8-4-4-4-12 form.
std::string makeUuidString();

}  // namespace halvora
