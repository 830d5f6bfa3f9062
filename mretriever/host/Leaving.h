#pragma once

namespace host {

// What is still to be done when the process ends, whichever way that is; called
// once at most, on the thread that ends it, while the others still run.
void setLastWork(void (*work)());

// Ends the process: last work, standard streams, _exit. No destructor of a
// static object runs, so no other thread meets a destroyed one. A second thread
// that wants to leave waits for the first to have done so.
//
// The program's own exit() is this function: the module ends the process from
// any thread with a call of exit().
[[noreturn]] void leave(int status);

}  // namespace host
