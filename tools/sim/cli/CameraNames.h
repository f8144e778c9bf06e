#pragma once
// --camera-names 0=wide,1=tele: names for the cameras of a session whose source does not name
// them (a trace without camera lines, a device log).

#include "model/Timeline.h"

#include <CLI/CLI.hpp>

#include <map>
#include <string>
#include <vector>

namespace ryxsim::cli {

class CameraNames {
  public:
    void addTo(CLI::App& command);
    // Empty when every ID=NAME item reads, else the error message.
    std::string parse();
    // Names the cameras of the sessions (a camera no session has gets a warning).
    void apply(std::vector<Timeline>& sessions) const;
    // The labels the names give ("1 tele"), for explanations written before the sessions end.
    std::map<int, std::string> labels() const;

  private:
    std::vector<std::string> mItems;
    std::map<int, std::string> mNames;
};

}  // namespace ryxsim::cli
