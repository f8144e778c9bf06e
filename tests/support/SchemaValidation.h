#pragma once
// JSON documents checked against the tool's schemas (tools/report.schema.json,
// tools/trace-event.schema.json) by Debian's python3-jsonschema, through tests/validate_json.py.

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace ryxtest {

// The validator's lines for `files` ("FILE: $.path: message"); empty when all conform. A
// validator that cannot run is an error line too.
inline std::string schemaErrors(std::string const& schema, std::vector<std::string> const& files) {
    std::string command = std::string(RYX_JSON_VALIDATOR) + " '" + schema + "'";
    for (auto const& f : files) {
        command += " '" + f + "'";
    }
    FILE* p = popen((command + " 2>&1").c_str(), "r");
    if (p == nullptr) {
        return "cannot run " + command + "\n";
    }
    std::string out;
    char buf[4096];
    while (size_t n = std::fread(buf, 1, sizeof buf, p)) {
        out.append(buf, n);
    }
    int status = pclose(p);
    if (status != 0 && out.empty()) {
        out = "the validator failed: " + command + "\n";
    }
    return out;
}

// The same for one document, written to a temporary file whose name is left out of the lines.
inline std::string schemaErrorsOf(std::string const& schema, nlohmann::json const& doc) {
    char name[] = "/tmp/schema-doc-XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) {
        return "cannot make a temporary file\n";
    }
    close(fd);
    std::ofstream(name) << doc.dump();
    std::string out = schemaErrors(schema, {name});
    std::remove(name);
    std::string prefix = std::string(name) + ": ";
    for (size_t at; (at = out.find(prefix)) != std::string::npos;) {
        out.erase(at, prefix.size());
    }
    return out;
}

}  // namespace ryxtest
