#pragma once
// A scenario expanded into the calls of its session, as the run asks for them.

#include "sources/scenario/Scenario.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace ryxsim {

// What the generator decided from the seed, for reports and tests.
struct GenerationPlan {
    std::vector<std::pair<int, int>> outOfTolerance;  // (frame, sensor)
    std::vector<std::pair<int, int>> slaveDrops;      // (frame, sensor)
};

// Expands a scenario into the calls of its session as they are asked for, one frame at a time:
// the random picks are made up front, the rows of a frame only when its turn comes, so a session
// of any length takes the same memory. Deterministic for a given seed.
class ScenarioRows : public RowSource {
  public:
    ScenarioRows(Scenario const& scenario, uint64_t seed);
    ~ScenarioRows() override;
    SessionInfo const& session() const override;
    std::vector<int> sensors() const override;
    bool next(CallRow& row) override;
    GenerationPlan const& plan() const;

  private:
    struct State;
    std::unique_ptr<State> mState;
};

}  // namespace ryxsim
