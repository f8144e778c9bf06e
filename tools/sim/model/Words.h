#pragma once
// Words the reports share.

#include <string>

namespace ryxsim {

// "1 frame", "2 frames", "0 frames".
inline std::string plural(long long n, std::string const& one, std::string const& many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace ryxsim
