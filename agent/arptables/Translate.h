// The plug-in writes its arptables lines in the dialect of the switch's own
// arptables; Debian's arptables (nf_tables and legacy alike) knows the same
// rules under other names. translate() maps one argument list, token by
// token, to the stock form:
//   chain OUT (after -A, -D, -F, -L, -S)  -> OUTPUT
//   -a 6                              -> --h-length 6
//   --arpop                           -> --opcode
//   --mangle-hw-s                     -> --mangle-mac-s
// Every other token the plug-in writes passes as it is. An option outside
// that known set refuses the whole line, so that nothing is ever run half
// translated. Pure: no I/O.
#pragma once

#include <string>
#include <vector>

namespace Agent::Arptables {

struct Translation {
  std::vector<std::string> args;  // the stock form, when refusal is empty
  std::string refusal;            // why the line cannot be translated
};

Translation translate(const std::vector<std::string>& args);

}  // namespace Agent::Arptables
