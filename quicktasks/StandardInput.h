#pragma once

// The application's standard input must be /dev/null: every process it starts inherits
// it, and the backends read a standard input that is not a terminal until it closes.
namespace StandardInput {

// Points descriptor 0 at /dev/null unless it already is (a closed descriptor 0 is opened
// too). Returns true when it changed anything. Call early at start-up, before threads.
// Throws SystemError when /dev/null cannot be opened.
bool redirectToNullDevice();

} // namespace StandardInput
