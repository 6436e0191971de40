// Which arptables dialect the agent's children speak. The plug-in writes
// its arptables lines for the switch's own arptables ("native"); a stock
// Linux host refuses them, so there the agent puts the adapter (main.cpp in
// this folder, built to libexec/acl-agent/arptables) first on its own PATH,
// which every child inherits, `ip netns exec NS arptables` included.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

enum class ArptablesDialect { automatic, native, stock };

// "auto", "native" or "stock"; nullopt for anything else.
std::optional<ArptablesDialect> arptablesDialect(std::string_view text);

// <folder of the running executable>/../libexec/acl-agent: the adapter's
// folder in the build tree (bin/ beside libexec/) and once installed.
std::string adapterFolder();

// Settles the dialect before any plug-in loads and prints one line
//   acl-agent: arptables: native|stock (WHY)
// automatic asks `probe` once whether the host's arptables accepts
// `arptables -L OUT` (which changes no rule): accepted means native. stock
// prepends adapterFolder() to PATH. False (with the reason printed) when
// stock is needed and there is no adapter.
bool doChooseArptablesDialect(ArptablesDialect choice, const std::function<bool()>& probe);

}  // namespace Agent
