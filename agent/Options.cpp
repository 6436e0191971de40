#include "agent/Options.h"

#include <filesystem>
#include <string_view>

namespace Agent {

Options parseOptions(int argc, const char* const* argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    std::string_view name = arg.substr(0, arg.find('='));
    const bool inlineValue = name.size() < arg.size();
    auto value = [&]() -> std::string {
      if (inlineValue) return std::string(arg.substr(name.size() + 1));
      if (i + 1 >= argc) throw UsageError(std::string(name) + " needs a value");
      return argv[++i];
    };
    if (name == "--state") {
      o.stateFile = value();
      if (o.stateFile.empty()) throw UsageError("--state needs a file name");
    } else if (name == "--plugin") {
      o.plugins.push_back(value());
      if (o.plugins.back().empty()) throw UsageError("--plugin needs a file name");
    } else if (name == "--trace") {
      o.traces.push_back(value());
    } else if (arg == "--until-idle") {
      o.untilIdle = true;
    } else if (arg == "--help" || arg == "-h") {
      o.help = true;
    } else {
      throw UsageError("unknown argument \"" + std::string(arg) + "\"");
    }
  }
  return o;
}

const char* usageText() {
  return "usage: acl-agent [--state FILE] [--plugin SO]... [--trace FACILITY/LEVELS] "
         "[--until-idle]\n"
         "  --state FILE    state document (JSON) to publish; re-read on change and on SIGHUP\n"
         "  --plugin SO     plug-in to load (repeatable; default: VirtualIpArpTablesPlugin.so\n"
         "                  beside acl-agent, else in ../lib/acl-agent)\n"
         "  --trace SPEC    trace levels, e.g. VirtualIpArpMangleSm/0-8 (repeatable)\n"
         "  --until-idle    exit 0 once the plug-in is running and has no work left\n";
}

std::string defaultPluginPath() {
  std::error_code ec;
  const std::filesystem::path bin =
      std::filesystem::read_symlink("/proc/self/exe", ec).parent_path();
  const std::filesystem::path built = bin / "VirtualIpArpTablesPlugin.so";
  const std::filesystem::path installed = bin / "../lib/acl-agent/VirtualIpArpTablesPlugin.so";
  if (!std::filesystem::exists(built, ec) && std::filesystem::exists(installed, ec))
    return installed.lexically_normal().string();
  return built.string();
}

}  // namespace Agent
