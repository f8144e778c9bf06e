#pragma once
// The one error a malformed scenario or trace produces: where it is and what is wrong.

#include <stdexcept>
#include <string>

namespace ryxsim {

class ParseError : public std::runtime_error {
  public:
    // Renders as "FILE:LINE: field 'FIELD': PROBLEM" (without the field part when it is empty,
    // without the line when it is 0: the file as a whole).
    ParseError(std::string file, int line, std::string field, std::string problem);

    std::string const& file() const { return mFile; }
    int line() const { return mLine; }
    std::string const& field() const { return mField; }
    std::string const& problem() const { return mProblem; }

  private:
    std::string mFile;
    int mLine;
    std::string mField;
    std::string mProblem;
};

}  // namespace ryxsim
