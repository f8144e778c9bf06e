#pragma once
// The one-line explanation of a frame that did not pass, in the words every sink shares: what
// dropped it, on which cameras, by how much its cameras' starts of frame differed. Rendered from
// the frame's facts and the timeline's camera names and events when a sink draws it, so that a
// renamed camera or new wording changes the output everywhere and the model not at all.

#include "model/Timeline.h"

#include <string>

namespace ryxsim {

// "dropped by the master: wide (master) dropped it, so it failed on tele"; empty for a frame
// that passed on every camera.
std::string explainFrame(Timeline const& t, FrameRecord const& f);

}  // namespace ryxsim
