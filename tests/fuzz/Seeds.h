// The seed corpus of a fuzz target, for FuzzDriver.cpp: one implementation
// per target (Seeds.cpp: the two keys; StateSeeds.cpp: state documents).
#pragma once

#include <string>
#include <vector>

// Inputs the target takes, each known to be taken.
std::vector<std::string> fuzzSeeds();
// True if the target takes text rather than refusing it.
bool fuzzTakes(const std::string& text);
