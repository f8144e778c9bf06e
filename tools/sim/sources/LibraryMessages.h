#pragma once
// The library's messages as the tool reads them. The library's catalogue (SyncMessages.h)
// defines each message once as a printf format; readers match a line's text against that same
// format, so a message changed in the catalogue is read as changed, and a reader of a message
// that is gone no longer compiles.

#include "SyncMessages.h"
#include "model/Calls.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ryxsim {

// The library's limits, as the readers need them.
constexpr int kFramesInFlight =
    static_cast<int>(NSCam::camsys::camcoordinator::synclimits::kMaxLiveFrames);
constexpr int kArrivalRecord =
    static_cast<int>(NSCam::camsys::camcoordinator::synclimits::kMaxArrivedFrames);

// Where one conversion of a format goes: a number, a text, or nowhere (kSkip).
struct Skip {};
inline constexpr Skip kSkip{};
using Field = std::variant<int*, long*, long long*, unsigned long*, double*, std::string*, Skip>;

// Matches `text` against the printf `format` from its start: every literal must match, every
// conversion (%d %ld %lld %lu %u %f %lf %.Nf %s %p, with widths) reads into its field in order.
// A %s reads up to the literal after it (to the end when last). Returns the length of text the
// format covered, or -1 when it does not match. Fields past a failed match may be written.
long matchFormat(std::string_view text, char const* format, Field const* fields, size_t count);
inline long matchFormat(std::string_view text, char const* format,
                        std::vector<Field> const& fields) {
    return matchFormat(text, format, fields.data(), fields.size());
}

// `text` is exactly the message `format` (nothing after it).
template <typename... F>
bool readMessage(std::string_view text, char const* format, F... fields) {
    Field const all[] = {Field(fields)..., Field(kSkip)};  // (never empty)
    return matchFormat(text, format, all, sizeof...(F)) == static_cast<long>(text.size());
}

// `text` starts with the message `format` (a repeated piece, a message with text after it).
template <typename... F>
bool readPrefix(std::string_view text, char const* format, F... fields) {
    Field const all[] = {Field(fields)..., Field(kSkip)};
    return matchFormat(text, format, all, sizeof...(F)) >= 0;
}

// "(%4d) [func] rest": the library's message frame; `func` and `rest` view into `message`.
bool splitFrame(std::string_view message, std::string_view& func, std::string_view& rest);

// `text` starts with the message `format`, whatever its values.
bool startsWithMessage(std::string_view text, char const* format);

// The framed text ("( 109) [operator()] time inversion, ...") is a refusal of the master's
// updater: an inversion or a missing time.
bool refusalMessage(std::string_view framed);

// The message (after its frame) is an inversion or a missing time: its kind, frame and master
// camera go to `a`.
bool anomalyOf(std::string_view message, LoggedAnomaly& a);

// `text` starts with one of the messages the library aborts with.
bool fatalMessage(std::string_view text);

// One entry of the catalogue.
struct LibraryMessage {
    char const* name;
    char severity;  // D I W E F, or '-' for a piece of another message
    char const* format;
    char const* meaning;
};

// Every entry, in the catalogue's order.
std::vector<LibraryMessage> const& libraryMessages();

}  // namespace ryxsim
