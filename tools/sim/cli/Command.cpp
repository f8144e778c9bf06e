#include "cli/Command.h"

#include "cli/Cli.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace ryxsim::cli {

bool readInput(std::string const& path, std::string const& what, std::string& text) {
    std::ostringstream all;
    errno = 0;
    if (path == "-") {
        all << std::cin.rdbuf();
        if (std::cin.bad()) {
            printError("cannot read the " + what +
                       " from standard input: " + std::strerror(errno ? errno : EIO));
            return false;
        }
    } else {
        std::ifstream in(path, std::ios::binary);
        if (in && std::filesystem::is_directory(path)) {
            errno = EISDIR;
            in.setstate(std::ios::failbit);
        } else if (in) {
            all << in.rdbuf();
        }
        if (!in || in.bad()) {
            printError("cannot read the " + what + " '" + path +
                       "': " + std::strerror(errno ? errno : EIO));
            return false;
        }
    }
    text = all.str();
    return true;
}

std::string inputName(std::string const& path) {
    return path == "-" ? "standard input" : path;
}

}  // namespace ryxsim::cli
