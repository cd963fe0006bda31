#include <fmt/format.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <ku/type.hpp>

#include "commands.hpp"

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
  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(text);
  writer.SetIndent(' ', 2);
  writer.StartArray();
  for (const auto* record : registeredRecords()) {
    const auto names = record->memberNames();
    const auto types = record->memberTypes();
    writer.StartObject();
    writer.Key("class");
    writer.String(record->className());
    writer.Key("kind");
    writer.String(kindName(record->kind()));
    writer.Key("members");
    writer.StartArray();
    for (std::size_t member = 0; member < names.size(); ++member) {
      writer.StartObject();
      writer.Key("name");
      writer.String(names.at(member));
      writer.Key("type");
      writer.String(types.at(member)->name());
      writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
  }
  writer.EndArray();
  fmt::print("{}\n", text.GetString());
}

}  // namespace

void addTypes(CLI::App& tool) {
  auto* const command = tool.add_subcommand(
      "types", "Print the records that the library declares to the middleware's type system");
  command->footer(
      R"(One row a record: class name, kind (plain or bouncer), members with their types.

Example:
  zorvel types --json)");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json,
                    "A list of objects with class, kind and members (each with name and type)");
  command->callback([json] { *json ? printJson() : printTable(); });
}

}  // namespace zorvel
