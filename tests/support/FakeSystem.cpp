#include "tests/support/FakeSystem.h"

#include <utility>

namespace {

struct State {
  std::vector<std::string> commands;
  std::vector<std::pair<std::string, int>> rules;
  std::function<int(const std::string&)> script;
};

State& state() {
  static State s;
  return s;
}

}  // namespace

namespace FakeSystem {

void reset() {
  state() = State();
}
const std::vector<std::string>& commands() {
  return state().commands;
}
void failWhen(const std::string& needle, int result) {
  state().rules.emplace_back(needle, result);
}
void resultIs(std::function<int(const std::string&)> script) {
  state().script = std::move(script);
}

}  // namespace FakeSystem

extern "C" int __wrap_system(const char* command) {
  State& s = state();
  std::string line = command ? command : "";
  s.commands.push_back(line);
  if (s.script) return s.script(line);
  for (auto it = s.rules.rbegin(); it != s.rules.rend(); ++it)
    if (line.find(it->first) != std::string::npos) return it->second;
  return 0;
}
