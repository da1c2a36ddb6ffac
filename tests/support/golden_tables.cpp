#include "support/golden_tables.h"

#include "support/gateway.h"

#include <libubox/blobmsg.h>

#include <map>
#include <sstream>
#include <stdexcept>

namespace {

int type_of(const std::string &name)
{
    static const std::map<std::string, int> types = {
        {"INT8", BLOBMSG_TYPE_INT8}, {"INT32", BLOBMSG_TYPE_INT32}, {"STRING", BLOBMSG_TYPE_STRING}};
    return types.at(name);
}

// The rows of a golden table: its lines but for the comments.
std::vector<std::istringstream> rows_of(const std::string &path)
{
    std::vector<std::istringstream> rows;
    std::istringstream text(golden(path));
    for (std::string line; std::getline(text, line);)
        if (!line.starts_with("#"))
            rows.emplace_back(line);
    return rows;
}

void expect_whole(const std::istringstream &row)
{
    if (row.fail())
        throw std::runtime_error("not a golden row: " + row.str());
}

} // namespace

std::vector<golden_argument> golden_arguments()
{
    std::vector<golden_argument> arguments;
    for (std::istringstream &row : rows_of("bus/arguments")) {
        golden_argument argument;
        std::string type;
        row >> argument.name >> type >> argument.low >> argument.high >> argument.display;
        expect_whole(row);
        argument.type = type_of(type);
        arguments.push_back(argument);
    }
    return arguments;
}

std::vector<golden_field> golden_fields()
{
    std::vector<golden_field> fields;
    for (std::istringstream &row : rows_of("bus/reply")) {
        golden_field field;
        std::string type;
        std::string methods;
        row >> field.name >> type >> field.bytes >> methods;
        expect_whole(row);
        field.type = type_of(type);
        field.in_get = methods == "both";
        fields.push_back(field);
    }
    return fields;
}

std::vector<golden_field> golden_get_fields()
{
    std::vector<golden_field> fields = golden_fields();
    std::erase_if(fields, [](const golden_field &field) { return !field.in_get; });
    return fields;
}
