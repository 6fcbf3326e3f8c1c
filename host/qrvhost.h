// Subcommands of the qrvhost program.
#pragma once

#include <string>
#include <vector>

int Play(const std::vector<std::string>& args);
