#pragma once
// Where a capture's bytes come from: a file or standard input, plain or packed. A plain capture
// is streamed in chunks (standard input as it arrives, so a live stream is read while it runs).
// A packed one is unpacked through libarchive: gzip, xz, bzip2 or zstd compression, a zip or
// tar archive, and these nested the way a tester wraps them. From an archive the capture is the
// entry that main_entry.txt names (a bugreport zip), else the one bugreport-*.txt, else the only
// file; a bugreport's tombstones (FS/data/tombstones/tombstone_NN) are handed over as well.

#include <functional>
#include <string>
#include <string_view>

namespace ryxsim {

struct CaptureInput {
    using Bytes = std::function<void(std::string_view bytes)>;
    // A tombstone entry of a bugreport zip: its name, then its bytes.
    using Tombstone = std::function<void(std::string const& name, std::string_view bytes)>;

    Bytes capture;
    Tombstone tombstone;
    // Asked when a read is interrupted by a signal (Ctrl-C): true ends the input there.
    std::function<bool()> interrupted;
};

// Reads `path` ("-" for standard input) into `to`. Returns "" when it was read, else why not
// ("cannot read the file: No such file or directory", "an archive of 3 files without
// main_entry.txt: ..."). `entry` is set to the archive entry read, empty for a plain capture.
std::string readCaptureInput(std::string const& path, CaptureInput const& to, std::string& entry);

// The same from an open descriptor (a pipe, standard input); `path` names it ("-" when it cannot
// be opened twice, so that an archive is kept whole to be read).
std::string readCaptureFd(int fd, std::string const& path, CaptureInput const& to,
                          std::string& entry);

}  // namespace ryxsim
