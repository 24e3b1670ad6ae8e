// JSON on standard output.
#include "json_output.h"

#include <iostream>
#include <json/writer.h>

namespace runner
{

namespace
{

void print(const Json::Value &value, const char *indentation)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["commentStyle"] = "None";
    builder["enableYAMLCompatibility"] = true; // "key": value
    builder["emitUTF8"] = true;
    std::cout << Json::writeString(builder, value) << "\n";
}

} // namespace

void print_json(const Json::Value &value)
{
    print(value, "  ");
}

void print_json_line(const Json::Value &value)
{
    print(value, "");
}

} // namespace runner
