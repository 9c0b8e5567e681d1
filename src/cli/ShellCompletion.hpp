#pragma once

#include <string>

#include "cli/CommandReference.hpp"

namespace quorvane {

// Completion scripts for `program`, written from its command definitions: they
// offer the commands and subcommands, each command's own options, the allowed
// values of an option or argument that lists them, and folders where a value
// names one. Bash needs nothing but itself, not even the bash-completion package.
namespace ShellCompletion {

std::string bash(const CommandReference& root, const std::string& program);
// For zsh's fpath (vendor-completions): the file is the function `_program`.
std::string zsh(const CommandReference& root, const std::string& program);
std::string fish(const CommandReference& root, const std::string& program);

}  // namespace ShellCompletion
}  // namespace quorvane
