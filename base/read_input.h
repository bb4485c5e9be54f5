#pragma once

// Reading from a descriptor when signals may arrive: the handlers of this program are installed
// without SA_RESTART, so a blocking read can end with EINTR. Any thread may call these; they log
// nothing.

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string_view>

namespace Vantrell {

// One read(), repeated when a signal interrupts it. Returns the number of bytes, 0 at the end of
// the input, or -1 with the reason in errno.
ssize_t ReadSome(int descriptor, void* buffer, size_t size);

// Reads to the end of the input, in blocks of at most `blockBytes`, and passes each block to
// `take`. False when a read fails; the blocks before it have been passed on by then.
[[nodiscard]] bool ReadToEnd(int descriptor, size_t blockBytes,
                             const std::function<void(std::string_view block)>& take);

}  // namespace Vantrell
