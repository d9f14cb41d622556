#pragma once

// The command-line assistants Tarvel drives. The raw values are persisted (settings,
// sessions), so an enumerator is never renamed or reused; what each backend is lives in its
// profile (BackendProfiles::of).
enum class QuickTaskCLIBackend { codex, claude, opencode };
