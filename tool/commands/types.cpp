#include <fmt/format.h>

#include <ku/type.hpp>

#include "recording/json_writer.hpp"
#include "system/command_line.hpp"

namespace zorvel {
namespace {

std::vector<const ku::StructTypeInterface*> registeredRecords() {
  std::vector<const ku::StructTypeInterface*> records;
  for (const auto* type : ku::registeredTypes()) {
    const auto* record = dynamic_cast<const ku::StructTypeInterface*>(type);
    if (record != nullptr) records.push_back(record);
  }
  return records;
}

const char* kindName(ku::StructKind kind) {
  return kind == ku::StructKind::Plain ? "plain" : "bouncer";
}

void printTable() {
  for (const auto* record : registeredRecords()) {
    std::string members;
    const auto names = record->memberNames();
    const auto types = record->memberTypes();
    for (std::size_t member = 0; member < names.size(); ++member) {
      members += fmt::format("{}{} ({})", member == 0 ? "" : ", ", names.at(member),
                             types.at(member)->name());
    }
    fmt::print("{:<37} {:<8} {}\n", record->className(), kindName(record->kind()), members);
  }
}

void printJson() {
  fmt::memory_buffer text;
  JsonTextWriter json(text);
  json.beginList();
  for (const auto* record : registeredRecords()) {
    const auto names = record->memberNames();
    const auto types = record->memberTypes();
    json.begin();
    json.member("class", record->className());
    json.member("kind", kindName(record->kind()));
    json.key("members");
    json.beginList();
    for (std::size_t member = 0; member < names.size(); ++member) {
      json.begin();
      json.member("name", names.at(member));
      json.member("type", types.at(member)->name());
      json.end();
    }
    json.endList();
    json.end();
  }
  json.endList();
  fmt::print("{}\n", fmt::to_string(text));
}

}  // namespace

void addTypes(Command tool) {
  Command command = tool.addSubcommand(
      "types", "Print the records that the library declares to the middleware's type system",
      R"(One row per record: class name, kind (plain or bouncer), members with their types.

Example:
  zorvel types --json)");
  const auto json = std::make_shared<bool>(false);
  command.addFlag("--json", *json,
                  "A list of objects with class, kind and members (each with name and type)");
  command.setAction([json] { *json ? printJson() : printTable(); });
}

}  // namespace zorvel
