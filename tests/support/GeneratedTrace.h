#pragma once
// A scenario's whole expansion at once (its rows gathered), for the short sessions of tests.

#include "sources/scenario/ScenarioRows.h"

namespace ryxtest {

inline ryxsim::Trace generateTrace(ryxsim::Scenario const& s, uint64_t seed,
                                   ryxsim::GenerationPlan* planOut = nullptr) {
    ryxsim::ScenarioRows rows(s, seed);
    ryxsim::Trace t;
    t.session = rows.session();
    ryxsim::CallRow row;
    while (rows.next(row)) {
        t.rows.push_back(row);
    }
    if (planOut != nullptr) {
        *planOut = rows.plan();
    }
    return t;
}

}  // namespace ryxtest
