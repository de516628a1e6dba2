#pragma once

namespace korin::platform {

// For threads of the library's own that sleep between operations, as those of the
// kernels' pool do. On Windows nobody can wait for the end of such a thread while the
// library is being unloaded, and a thread whose code is gone ends the process. So a
// keeper watches over them: a thread that runs `body` and keeps the library loaded,
// whatever the application does, until `body` has returned. It must end the other
// threads before.
//
// False when no keeper runs: it cannot be started, or the system (any but Windows)
// needs none, since threads may be waited for while a library is unloaded.
bool StartKeeper(void (*body)()) noexcept;

// A forked child has no other thread than the one that forked: `before` is called when
// the process is about to fork, then `after` in both processes. Never called where
// processes do not fork.
void AroundForks(void (*before)(), void (*after)()) noexcept;

}  // namespace korin::platform
