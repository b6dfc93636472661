#pragma once

namespace zelvo::platform {

/// Gives back what was only needed to come this far: the free ends of the heap, and the code and
/// constants of the program and its libraries, nearly all of which only the start reads. What is
/// read again comes back from the kernel's cache, a page at a time. For a program that will wait
/// for long; takes some milliseconds. Does nothing where the kernel does not tell what is in
/// memory. Any thread.
void restMemory();

}  // namespace zelvo::platform
