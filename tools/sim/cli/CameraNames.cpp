#include "cli/CameraNames.h"

#include "cli/Cli.h"
#include "sources/InputChecks.h"

namespace ryxsim::cli {

void CameraNames::addTo(CLI::App& command) {
    command
        .add_option("--camera-names", mItems,
                    "Name the cameras, e.g. 0=wide,1=tele (comma-separated or repeated)")
        ->type_name("ID=NAME")
        ->delimiter(',');
}

std::string CameraNames::parse() {
    for (std::string const& item : mItems) {
        size_t eq = item.find('=');
        int64_t id = 0;
        if (eq == std::string::npos || eq + 1 == item.size() ||
            readInteger(item.substr(0, eq), 0, INT32_MAX, id) != IntegerVerdict::Ok) {
            return "--camera-names: '" + item + "': expected ID=NAME, e.g. 0=wide";
        }
        mNames[static_cast<int>(id)] = item.substr(eq + 1);
    }
    return "";
}

namespace {

bool hasCamera(Timeline const& t, int id) {
    bool known = t.labels.count(id) != 0;
    for (auto const& s : t.sensors) {
        known = known || s.sensor == id;
    }
    return known;
}

}  // namespace

std::map<int, std::string> CameraNames::labels() const {
    std::map<int, std::string> out;
    for (auto const& [id, name] : mNames) {
        out[id] = std::to_string(id) + " " + name;
    }
    return out;
}

void CameraNames::apply(std::vector<Timeline>& sessions) const {
    for (auto const& [id, name] : mNames) {
        bool anywhere = false;
        for (Timeline const& t : sessions) {
            anywhere = anywhere || hasCamera(t, id);
        }
        if (!anywhere) {
            printWarning("--camera-names: no session has a camera " + std::to_string(id));
        }
    }
    for (Timeline& t : sessions) {
        std::map<int, std::string> labels;
        for (auto const& [id, name] : mNames) {
            if (hasCamera(t, id)) {
                labels[id] = std::to_string(id) + " " + name;
            }
        }
        renameCameras(t, labels);
    }
}

}  // namespace ryxsim::cli
