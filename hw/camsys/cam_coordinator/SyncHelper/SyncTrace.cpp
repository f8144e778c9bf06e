#include "SyncTrace.h"

#include <cstdarg>
#include <cstdio>

namespace NSCam {
namespace camsys {
namespace camcoordinator {
namespace synctrace {

void mark(const char* name) {
    begin(name);
    end();
}

void markf(const char* fmt, ...) {
    char name[1024];
    va_list args;
    va_start(args, fmt);
    int length = std::vsnprintf(name, sizeof name, fmt, args);
    va_end(args);
    if (length >= 0) {
        mark(name);
    }
}

}  // namespace synctrace
}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
