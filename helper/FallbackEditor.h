#pragma once

#include <string>

// The terminal editor that takes over when no Tarvel application answers.
namespace FallbackEditor {

// TARVEL_FALLBACK_EDITOR, else EDITOR unless it names tarvel-edit itself, else vi.
std::string command();

// Replaces this process with `/bin/sh -c '<command> "$@"' tarvel-edit <file>`, so the editor gets
// the terminal and its exit status becomes ours. Returns only on failure, with the reason.
std::string exec(const std::string &command, const std::string &file);

} // namespace FallbackEditor
