#include "agent/Options.h"

#include <filesystem>
#include <optional>
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
    } else if (name == "--arptables") {
      const std::string text = value();
      const std::optional<ArptablesDialect> d = arptablesDialect(text);
      if (!d) throw UsageError("--arptables " + text + ": not auto, native or stock");
      o.arptables = *d;
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
         "                 [--arptables auto|native|stock]\n"
         "  --state FILE    state document (JSON) to publish; re-read on change and on SIGHUP\n"
         "  --plugin SO     plug-in to load (repeatable; default: VirtualIpArpTablesPlugin.so\n"
         "                  beside acl-agent)\n"
         "  --trace SPEC    trace levels, e.g. VirtualIpArpMangleSm/0-8 (repeatable)\n"
         "  --until-idle    exit 0 once the plug-in is running and has no work left\n"
         "  --arptables D   the arptables dialect: native (the plug-in's), stock (through the\n"
         "                  adapter in libexec/acl-agent), auto (default: probe at start-up)\n";
}

std::string defaultPluginPath() {
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (exe.parent_path() / "VirtualIpArpTablesPlugin.so").string();
}

}  // namespace Agent
