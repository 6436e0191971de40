#include "agent/Options.h"

#include <cmath>
#include <filesystem>
#include <string_view>

#include "agent/source/redis/RedisConnection.h"

namespace Agent {

namespace {

using Mode = Options::Mode;

// Which options each kind of run takes; anything else is refused, so a
// misplaced option never passes silently.
bool allowed(Mode mode, std::string_view name) {
  if (name == "--control" || name == "--help" || name == "-h") return true;
  switch (mode) {
    case Mode::status:
      return name == "--json";
    case Mode::verify:
      return name == "--repair";
    case Mode::metrics:
      return false;
    case Mode::agent:
      return name != "--json";
  }
  return false;
}

template <class E>
E choice(std::string_view name, const std::string& value,
         std::initializer_list<std::pair<const char*, E>> choices) {
  std::string names;
  for (const auto& [text, e] : choices) {
    if (value == text) return e;
    names += names.empty() ? text : std::string("|") + text;
  }
  throw UsageError(std::string(name) + " takes " + names + ", not \"" + value + "\"");
}

double seconds(std::string_view name, const std::string& value) {
  std::size_t used = 0;
  double s = -1;
  try {
    s = std::stod(value, &used);
  } catch (const std::exception&) {
  }
  if (used != value.size() || !std::isfinite(s) || s <= 0)
    throw UsageError(std::string(name) + " takes a number of seconds above 0, not \"" + value +
                     "\"");
  return s;
}

}  // namespace

Options parseOptions(int argc, const char* const* argv) {
  Options o;
  bool redisDbGiven = false;
  int i = 1;
  if (argc > 1 && std::string_view(argv[1]) == "status") o.mode = Mode::status, ++i;
  if (argc > 1 && std::string_view(argv[1]) == "verify") o.mode = Mode::verify, ++i;
  if (argc > 1 && std::string_view(argv[1]) == "metrics") o.mode = Mode::metrics, ++i;
  for (; i < argc; ++i) {
    std::string_view arg = argv[i];
    std::string_view name = arg.substr(0, arg.find('='));
    const bool inlineValue = name.size() < arg.size();
    auto value = [&]() -> std::string {
      if (inlineValue) return std::string(arg.substr(name.size() + 1));
      if (i + 1 >= argc) throw UsageError(std::string(name) + " needs a value");
      return argv[++i];
    };
    auto flag = [&] {
      if (inlineValue) throw UsageError(std::string(name) + " takes no value");
      return true;
    };
    if (name.starts_with("-") && !allowed(o.mode, name))
      throw UsageError(std::string(name) + " does not go with this mode");
    if (name == "--state") {
      o.stateFile = value();
      if (o.stateFile.empty()) throw UsageError("--state needs a file name");
    } else if (name == "--redis") {
      o.redisAddress = value();
      try {
        Redis::parseAddress(o.redisAddress);
      } catch (const std::invalid_argument& e) {
        throw UsageError("--redis " + o.redisAddress + ": " + e.what());
      }
    } else if (name == "--redis-db") {
      const std::string n = value();
      if (n.empty() || n.size() > 5 || n.find_first_not_of("0123456789") != std::string::npos)
        throw UsageError("--redis-db takes a database number, not \"" + n + "\"");
      o.redisDb = std::stoi(n);
      redisDbGiven = true;
    } else if (name == "--plugin") {
      o.plugins.push_back(value());
      if (o.plugins.back().empty()) throw UsageError("--plugin needs a file name");
    } else if (name == "--trace") {
      o.traces.push_back(value());
    } else if (name == "--until-idle") {
      o.untilIdle = flag();
    } else if (name == "--apply") {
      o.apply = choice(
          name, value(),
          {std::pair("per-line", Options::Apply::perLine),
           std::pair("batch", Options::Apply::batch), std::pair("nft", Options::Apply::nft)});
    } else if (name == "--arptables") {
      o.arptables = choice(name, value(),
                           {std::pair("auto", ArptablesDialect::automatic),
                            std::pair("native", ArptablesDialect::native),
                            std::pair("stock", ArptablesDialect::stock)});
    } else if (name == "--dry-run") {
      o.dryRun = true;
      if (inlineValue) o.dryRunFile = value();
      if (inlineValue && o.dryRunFile.empty()) throw UsageError("--dry-run= needs a file name");
    } else if (name == "--control") {
      o.controlPath = value();
      if (o.controlPath.empty()) throw UsageError("--control needs a socket path");
    } else if (name == "--lock") {
      o.lockPath = value();
      if (o.lockPath.empty()) throw UsageError("--lock needs a file path");
    } else if (name == "--verify-every") {
      o.verifyEvery = seconds(name, value());
    } else if (name == "--repair") {
      o.repair = flag();
    } else if (name == "--metrics-listen") {
      o.metricsListen = value();
      if (o.metricsListen.empty()) throw UsageError("--metrics-listen needs ADDRESS:PORT");
    } else if (name == "--log") {
      o.log = choice(
          name, value(),
          {std::pair("auto", Options::Log::automatic), std::pair("stderr", Options::Log::plain),
           std::pair("journal", Options::Log::journal)});
    } else if (name == "--json") {
      o.json = flag();
    } else if (name == "--help" || name == "-h") {
      o.help = flag();
    } else {
      throw UsageError("unknown argument \"" + std::string(arg) + "\"");
    }
  }
  if (!o.stateFile.empty() && !o.redisAddress.empty())
    throw UsageError("--state and --redis do not go together: one source at a time");
  if (redisDbGiven && o.redisAddress.empty()) throw UsageError("--redis-db goes with --redis");
  return o;
}

const char* usageText() {
  return "usage: acl-agent [--state FILE | --redis ADDRESS [--redis-db N]] [--plugin SO]... "
         "[--trace FACILITY/LEVELS] "
         "[--until-idle]\n"
         "                 [--apply per-line|batch|nft] [--arptables auto|native|stock]\n"
         "                 [--dry-run[=FILE]] [--control PATH] [--lock PATH] [--verify-every "
         "SECONDS "
         "[--repair]]\n"
         "                 [--metrics-listen ADDRESS:PORT] [--log auto|stderr|journal]\n"
         "       acl-agent status [--control PATH] [--json]\n"
         "       acl-agent verify [--control PATH] [--repair]\n"
         "       acl-agent metrics [--control PATH]\n"
         "\n"
         "The agent:\n"
         "  --state FILE        state document (JSON) to publish; re-read on change and on SIGHUP\n"
         "  --redis ADDRESS     follow a Redis state database (unix:PATH or HOST:PORT) instead\n"
         "  --redis-db N        its database number (default 6)\n"
         "  --plugin SO         plug-in to load (repeatable; default: VirtualIpArpTablesPlugin.so\n"
         "                      beside acl-agent, else in ../lib/acl-agent)\n"
         "  --trace SPEC        trace levels, e.g. VirtualIpArpMangleSm/0-8 (repeatable)\n"
         "  --until-idle        exit 0 once the plug-in is running and has no work left\n"
         "  --apply MODE        per-line (default): one process per rule line;\n"
         "                      batch: one iptables-restore per namespace and family per slice;\n"
         "                      nft: the agent's own nftables tables, one in-process\n"
         "                      transaction per namespace per slice (--arptables is ignored)\n"
         "  --arptables DIALECT auto (default): probe the host's arptables at start-up;\n"
         "                      native: run the plug-in's lines as they are;\n"
         "                      stock: translate them for a stock Linux arptables (through\n"
         "                      the adapter in libexec/acl-agent)\n"
         "  --dry-run[=FILE]    run no packet-filter or ip netns command: write each line to\n"
         "                      stdout (or FILE) and take it as succeeded\n"
         "  --control PATH      control socket (default /run/acl-agent/control.sock)\n"
         "  --lock PATH         the one-agent-per-host lock (default /run/acl-agent.lock); only\n"
         "                      agents of separate simulated hosts may use separate locks\n"
         "  --verify-every S    read the rules back every S seconds and log drift\n"
         "  --repair            with --verify-every: repair the drift too\n"
         "  --metrics-listen A  serve GET /metrics (Prometheus text) on A, e.g. 127.0.0.1:9641\n"
         "  --log WHERE         the four log messages: auto (default: the journal when stderr\n"
         "                      is the journal's stream, else stderr and syslog), stderr, journal\n"
         "\n"
         "Clients of a running agent (exit 0 in step, 1 on drift, 2 on error):\n"
         "  status              what is installed, queued and failed; --json for the JSON form\n"
         "  verify              compare the kernel's rules with the records; --repair fixes "
         "drift\n"
         "  metrics             the agent's metrics in the Prometheus text format\n";
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
