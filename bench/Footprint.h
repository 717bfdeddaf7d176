#pragma once

#include <functional>
#include <memory>

namespace bench {

/// Bytes of anonymous memory that stay resident while what `make` hands out is alive, measured in a child process of
/// its own: pages of mapped files do not count, memory that was needed only for a while and went back to the system
/// does not either. To be called before this process starts threads or opens a store.
double anonymousBytes(const std::function<std::shared_ptr<void>()>& make);

}  // namespace bench
