// The tool's --json output: one object a line, each with the schema's version and its type
// (docs/tool.md describes them). Every text in it is valid UTF-8: a byte that is not part of
// a UTF-8 character is written as the four characters \xNN.
#pragma once
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

namespace korvane {

using Json = nlohmann::ordered_json;  // fields in the order written

// Raised with every change to the objects' fields.
constexpr int kJsonSchemaVersion = 1;

// {"version":1,"type":TYPE}, to be filled.
Json jsonObject(const char* type);

// Writes the object on a line of its own.
void writeJson(std::ostream& out, const Json& object);

// The text with every byte that does not belong to a valid UTF-8 character written as \xNN.
std::string validUtf8(const std::string& text);

// A number in the shortest form that reads back to the same value of its type.
std::string shortest(float value);
std::string shortest(double value);
// The float as a JSON number that prints in its shortest form (not the double's 17 digits).
Json jsonNumber(float value);

}  // namespace korvane
