#pragma once
// A JSON Schema check for the keywords the tool's schemas use ($ref to "#/$defs/...", type,
// const, enum, required, properties, additionalProperties, items, minItems, minimum, minLength,
// oneOf; annotations ignored). A keyword it does not know is reported as an error, so a schema
// can never pass by being half read.

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace ryxtest {

class JsonSchemaCheck {
  public:
    explicit JsonSchemaCheck(nlohmann::json schema) : mRoot(std::move(schema)) {}

    // The places where `doc` breaks the schema, "path: problem"; empty when it conforms.
    std::vector<std::string> errors(nlohmann::json const& doc) const {
        std::vector<std::string> out;
        check(mRoot, doc, "$", out);
        return out;
    }

    // The same against one definition of the schema, "#/$defs/NAME".
    std::vector<std::string> errors(nlohmann::json const& doc, std::string const& ref) const {
        std::vector<std::string> out;
        check(nlohmann::json{{"$ref", ref}}, doc, "$", out);
        return out;
    }

  private:
    static bool hasType(nlohmann::json const& v, std::string const& t) {
        if (t == "integer") {
            return v.is_number_integer();
        }
        if (t == "number") {
            return v.is_number();
        }
        return (t == "string" && v.is_string()) || (t == "boolean" && v.is_boolean()) ||
               (t == "object" && v.is_object()) || (t == "array" && v.is_array()) ||
               (t == "null" && v.is_null());
    }

    void check(nlohmann::json const& s, nlohmann::json const& v, std::string const& path,
               std::vector<std::string>& out) const {
        for (auto const& [key, arg] : s.items()) {
            if (key == "$schema" || key == "$id" || key == "title" || key == "description" ||
                key == "$defs") {
                continue;
            }
            if (key == "$ref") {
                std::string ref = arg.get<std::string>();
                check(mRoot.at(nlohmann::json::json_pointer(ref.substr(1))), v, path, out);
            } else if (key == "type") {
                bool ok = false;
                for (auto const& t : arg.is_array() ? arg : nlohmann::json::array({arg})) {
                    ok = ok || hasType(v, t.get<std::string>());
                }
                if (!ok) {
                    out.push_back(path + ": not of type " + arg.dump());
                }
            } else if (key == "const" && v != arg) {
                out.push_back(path + ": not " + arg.dump());
            } else if (key == "enum" && std::find(arg.begin(), arg.end(), v) == arg.end()) {
                out.push_back(path + ": " + v.dump() + " not one of " + arg.dump());
            } else if (key == "required" && v.is_object()) {
                for (auto const& name : arg) {
                    if (!v.contains(name.get<std::string>())) {
                        out.push_back(path + ": lacks " + name.dump());
                    }
                }
            } else if (key == "properties" && v.is_object()) {
                for (auto const& [name, sub] : arg.items()) {
                    if (v.contains(name)) {
                        check(sub, v.at(name), path + "." + name, out);
                    }
                }
            } else if (key == "additionalProperties" && v.is_object()) {
                for (auto const& [name, item] : v.items()) {
                    if (s.contains("properties") && s["properties"].contains(name)) {
                        continue;
                    }
                    if (arg.is_boolean() && !arg.get<bool>()) {
                        out.push_back(path + ": unexpected member " + name);
                    } else if (arg.is_object()) {
                        check(arg, item, path + "." + name, out);
                    }
                }
            } else if (key == "items" && v.is_array()) {
                for (size_t i = 0; i < v.size(); ++i) {
                    check(arg, v[i], path + "[" + std::to_string(i) + "]", out);
                }
            } else if (key == "minItems" && v.is_array() && v.size() < arg.get<size_t>()) {
                out.push_back(path + ": fewer than " + arg.dump() + " items");
            } else if (key == "minimum" && v.is_number() && v.get<double>() < arg.get<double>()) {
                out.push_back(path + ": below " + arg.dump());
            } else if (key == "minLength" && v.is_string() &&
                       v.get<std::string>().size() < arg.get<size_t>()) {
                out.push_back(path + ": shorter than " + arg.dump());
            } else if (key == "oneOf") {
                int matching = 0;
                for (auto const& alt : arg) {
                    std::vector<std::string> sub;
                    check(alt, v, path, sub);
                    matching += sub.empty();
                }
                if (matching != 1) {
                    out.push_back(path + ": matches " + std::to_string(matching) +
                                  " of the oneOf alternatives");
                }
            } else if (key != "const" && key != "enum" && key != "required" &&
                       key != "properties" && key != "additionalProperties" && key != "items" &&
                       key != "minItems" && key != "minimum" && key != "minLength") {
                out.push_back(path + ": schema keyword '" + key + "' is not checked");
            }
        }
    }

    nlohmann::json mRoot;
};

}  // namespace ryxtest
