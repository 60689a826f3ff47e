// One-time start of the MIME library behind the mail classes.
#pragma once

namespace marrow {

// Starts the library the first time any thread calls it; later calls return
// at once. Every entry point that touches MIME objects calls this first.
// The library is never shut down: its tables live as long as the process.
void EnsureMimeLibrary();

}  // namespace marrow
