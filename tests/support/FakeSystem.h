// The system() seam for in-process tests: programs linked with
// -Wl,--wrap=system send every command line here. Each line is recorded;
// its result comes from the script (0 unless a rule says otherwise).
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace FakeSystem {

// Forgets recorded lines and rules.
void reset();
const std::vector<std::string>& commands();
// Every later command containing `needle` returns `result`; later rules win.
void failWhen(const std::string& needle, int result = 256);
// Full control: the result of each command.
void resultIs(std::function<int(const std::string&)> script);

}  // namespace FakeSystem
