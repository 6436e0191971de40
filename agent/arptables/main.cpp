// The arptables adapter: first on the agent's children's PATH when the
// agent runs with --arptables=stock (see ArptablesDialect.h). Translates its
// arguments (Translate.h) and execs the host's real arptables, the first one
// on PATH outside the adapter's own folder, so the caller sees that tool's
// output and status. A line it cannot translate is refused with one stderr
// line and status 2; nothing runs then.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "agent/arptables/Translate.h"

namespace fs = std::filesystem;

namespace {

const char* const self = "arptables (acl-agent adapter)";

bool sameFile(const fs::path& a, const fs::path& b) {
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// The first executable arptables on PATH that is not this adapter.
std::string realArptables() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  const char* path = std::getenv("PATH");
  std::stringstream dirs(path ? path : "");
  std::string dir;
  while (std::getline(dirs, dir, ':')) {
    if (dir.empty() || fs::equivalent(dir, exe.parent_path(), ec)) continue;
    const fs::path candidate = fs::path(dir) / "arptables";
    if (::access(candidate.c_str(), X_OK) == 0 && !sameFile(candidate, exe))
      return candidate.string();
  }
  return std::string();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const Agent::Arptables::Translation t = Agent::Arptables::translate(args);
  if (!t.refusal.empty()) {
    std::string line;
    for (const std::string& a : args) line += " " + a;
    std::cerr << self << ": refused, " << t.refusal << ": arptables" << line << "\n";
    return 2;
  }
  const std::string real = realArptables();
  if (real.empty()) {
    std::cerr << self << ": no arptables on PATH past the adapter's own folder\n";
    return 127;
  }
  std::vector<char*> out{const_cast<char*>("arptables")};
  for (const std::string& a : t.args) out.push_back(const_cast<char*>(a.c_str()));
  out.push_back(nullptr);
  ::execv(real.c_str(), out.data());
  std::cerr << self << ": cannot run " << real << ": " << std::strerror(errno) << "\n";
  return 126;
}
