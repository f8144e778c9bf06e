#pragma once
// Checks on what a user types or writes that the parsers alone would take silently or explain
// badly: numbers in any notation against their range, control values the library accepts but
// that make every frame fail, and properties the library never reads.

#include "model/Calls.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ryxsim {

enum class IntegerVerdict { Ok, NotANumber, Fractional, OutOfRange };

// Reads a whole number written as 12, -3, 1e6 or 2.0e3 into [lo, hi]. Values too large for any
// integer type are OutOfRange, like any value outside [lo, hi].
IntegerVerdict readInteger(std::string_view text, int64_t lo, int64_t hi, int64_t& out);

// The problem of a verdict other than Ok, for messages: "expected an integer, got 'x'",
// "value 1e30 is out of range [1, 1000000]".
std::string integerProblem(IntegerVerdict verdict, std::string_view text, int64_t lo, int64_t hi);

// Warnings (without prefix) on control values that the library takes but that decide every
// frame they reach: a negative tolerance, a mode other than 0 and 1. One warning per value.
std::vector<std::string> controlWarnings(Trace const& trace);

// The same over rows given one at a time.
class ControlChecker {
  public:
    struct Seen {
        size_t calls = 0;
        int sensor = 0, frame = 0, line = 0;  // of the first call
    };
    void add(CallRow const& row);
    std::vector<std::string> warnings() const;

  private:
    std::map<int64_t, Seen> mTolerances;
    std::map<int32_t, Seen> mModes;
};

// A warning (without prefix) for a property NAME=VALUE the library ignores: a name it never
// reads, or a value that is not a whole number (the library then uses its default). Empty when
// the property is fine.
std::string propertyWarning(std::string const& name, std::string const& value);

}  // namespace ryxsim
