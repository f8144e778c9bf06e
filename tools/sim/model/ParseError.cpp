#include "model/ParseError.h"

#include <utility>

namespace ryxsim {

ParseError::ParseError(std::string file, int line, std::string field, std::string problem)
    : std::runtime_error(file + (line > 0 ? ":" + std::to_string(line) : "") + ": " +
                         (field.empty() ? "" : "field '" + field + "': ") + problem),
      mFile(std::move(file)),
      mLine(line),
      mField(std::move(field)),
      mProblem(std::move(problem)) {}

}  // namespace ryxsim
