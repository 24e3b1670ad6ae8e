// JSON as every command prints it.
#ifndef QELI2C_SIM_JSON_OUTPUT_H
#define QELI2C_SIM_JSON_OUTPUT_H

#include <json/value.h>

namespace runner
{

// A document on standard output, keys in alphabetical order.
void print_json(const Json::Value &value);

// The same on one line, for streams of documents.
void print_json_line(const Json::Value &value);

} // namespace runner

#endif
