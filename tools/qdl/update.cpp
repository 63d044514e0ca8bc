// qdl update: applies a script of numbered schema actions through the update runner.
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quorbex/DataLayer.h"
#include "quorbex/clsTableManager.h"
#include "quorbex/clsUpdateDB.h"
#include "quorbex/text.h"
#include "tools/qdl/schema_commands.h"
#include "tools/qdl/secrets.h"

namespace quorbex::qdl {

namespace {

struct Action {
  int32_t number = 0;
  int32_t code = 0;
  std::string option[3];
  std::string Text() const {
    return std::to_string(number) + ";" + std::to_string(code) + ";" + option[0] + ";" + option[1] + ";" + option[2];
  }
};

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> parts(1);
  for (char c : line) {
    if (c == ';') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::optional<int32_t> Number(const std::string& text) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return static_cast<int32_t>(std::stol(text));
}

bool IsFlag(const std::string& text) {
  const std::string upper = UCase(text);
  return upper == "TRUE" || upper == "FALSE" || upper == "1" || upper == "0" || upper == "-1";
}

// The action of one script line, or the reason it is not one.
std::optional<Action> Parse(std::string line, int32_t previous_number, std::string& reason) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const std::vector<std::string> parts = Split(line);
  if (parts.size() < 3) {
    reason = "expected \"number;code;Option1;Option2;Option3\"";
    return std::nullopt;
  }
  if (parts.size() > 5) {
    reason = "more than five parts (a name must not contain \";\")";
    return std::nullopt;
  }
  Action action;
  const auto number = Number(parts[0]);
  const auto code = Number(parts[1]);
  if (!number) {
    reason = "the update number \"" + parts[0] + "\" is not a whole number";
    return std::nullopt;
  }
  if (!code || *code < 1 || *code > 5) {
    reason = "the action code \"" + parts[1] + "\" is not 1 to 5";
    return std::nullopt;
  }
  action.number = *number;
  action.code = *code;
  for (size_t i = 2; i < parts.size(); ++i) action.option[i - 2] = parts[i];
  if (action.number < previous_number) {
    reason = "update " + std::to_string(action.number) + " comes after update " + std::to_string(previous_number) +
             "; numbers must not go down";
    return std::nullopt;
  }
  if (action.option[0].empty()) {
    reason = "the table name is missing";
  } else if (action.code >= 3 && action.option[1].empty()) {
    reason = "the field name is missing";
  } else if (action.code == 3 && !action.option[2].empty() && !Number(action.option[2])) {
    reason = "the type code \"" + action.option[2] + "\" is not a number";
  } else if (action.code == 5 && !IsFlag(action.option[2])) {
    reason = "the primary flag must be True or False";
  } else if ((action.code == 1 || action.code == 2) && !(action.option[1].empty() && action.option[2].empty())) {
    reason = "create and delete table take the table name only";
  }
  if (!reason.empty()) return std::nullopt;
  return action;
}

// The bookkeeping records: their count and the last applied number (0 when there are none).
struct Bookkeeping {
  int32_t records = 0;
  int32_t last = 0;
  std::vector<std::string> texts;
};

Bookkeeping ReadBookkeeping(clsTableManager& manager) {
  Bookkeeping result;
  bool exists = false;
  const auto tables = manager.TableList();
  for (const std::string& name : *tables) exists = exists || name == clsUpdateDB::kDefaultUpdateTable;
  if (!exists) return result;
  auto layer = std::make_shared<DataLayer>();
  layer->GetRecordset(std::string("select * from ") + clsUpdateDB::kDefaultUpdateTable);
  result.records = layer->RecordCount();
  for (int32_t i = 1; i <= result.records; ++i) {
    layer->MoveSpecific(i);
    result.texts.push_back(CStr(layer->FieldValue("UpdateString")));
    result.last = CLng(layer->FieldValue("UpdateID"));
  }
  return result;
}

}  // namespace

int RunUpdate(const std::string& database, const std::string& script) {
  std::ifstream in(script, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "qdl update: cannot read the script '%s'\n", script.c_str());
    return 1;
  }
  std::vector<Action> actions;
  std::string line, malformed;
  for (int32_t number = 1, previous = 0; std::getline(in, line); ++number) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    std::string reason;
    auto action = Parse(line.substr(first), previous, reason);
    if (!action) {
      malformed = script + ":" + std::to_string(number) + ": " + reason;
      break;
    }
    previous = action->number;
    actions.push_back(*action);
  }

  auto messages = std::make_shared<DataLayer>();
  messages->SuppressAllMessages(true);  // the runner's messages are collected and printed below
  messages->DisableLog(true);           // bookkeeping records are not user data
  messages->ErrorStatus("");
  auto manager = std::make_shared<clsTableManager>();
  manager->SetDatabaseByPath(database);
  if (!manager->ErrorStatus.empty()) {
    std::fprintf(stderr, "qdl update: %s\n", MaskSecrets(manager->ErrorStatus).c_str());
    return 1;
  }
  const Bookkeeping before = ReadBookkeeping(*manager);
  auto runner = manager->DBUpdate();
  for (const Action& action : actions) {
    runner->AppendUpdateAction(action.number, action.code, action.option[0], action.option[1], action.option[2]);
  }
  if (!actions.empty()) runner->UpdateDatabase();
  const Bookkeeping after = ReadBookkeeping(*manager);

  size_t applied = 0, skipped = 0;
  for (const Action& action : actions) {
    if (action.number <= before.last) {
      std::printf("skipped  %s (update %d was applied before)\n", action.Text().c_str(), before.last);
      ++skipped;
    }
  }
  for (size_t i = static_cast<size_t>(before.records); i < after.texts.size(); ++i) {
    if (after.texts[i] == "CreateTable;sys_quorbexdatalayer") continue;
    std::printf("applied  %s\n", after.texts[i].c_str());
    ++applied;
  }
  std::printf("%zu applied, %zu skipped\n", applied, skipped);
  if (applied + skipped < actions.size()) {
    // The table manager holds the engine's text of a failed call; without one (a missing option, say)
    // the runner's collected messages tell why.
    std::string why = manager->ErrorStatus.empty() ? messages->ErrorStatus() : manager->ErrorStatus;
    for (char& c : why) if (c == '\r' || c == '\n') c = ' ';
    std::fprintf(stderr, "qdl update: the update stopped at %s: %s\n", actions[applied + skipped].Text().c_str(),
                 MaskSecrets(Trim(why)).c_str());
    return 1;
  }
  if (!malformed.empty()) {
    std::fprintf(stderr, "qdl update: %s; nothing from this line on was applied\n", malformed.c_str());
    return 1;
  }
  return 0;
}

}  // namespace quorbex::qdl
