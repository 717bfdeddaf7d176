#pragma once

namespace persist {

/// Counts this process's forks from now on; may be called more than once.
void watchForks();

/// How many forks led to this process, as far back as the library was loaded. What was made under a lower number is
/// inherited: it belongs to the parent, too.
unsigned forkCount();

}  // namespace persist
