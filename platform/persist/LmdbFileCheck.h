#pragma once

#include <cstdint>
#include <string>

#include "platform/persist/System.h"

namespace persist {

/// LMDB trusts its files: a flipped bit in a page header can send it anywhere. So a database file that this process
/// has not written itself is checked before the library follows anything in it, with reads that are bounded by the
/// file's size and by each page.
///
/// The layout is that of LMDB 0.9 for 64-bit little-endian machines (data version 1).

/// Checks the two meta pages. Empty when the library may open the file, else the reason.
std::string checkMetaPages(const OpenFile& file);

/// Checks every page that the state of transaction `transaction` uses: page numbers, types, node and value bounds, key
/// order, overflow pages and the list of free pages. That state must be pinned by a read transaction, so that no
/// writer of any process reuses its pages meanwhile. Empty when all is well, else the reason; `*superseded` is set
/// instead when neither meta page describes that transaction any more.
std::string checkTree(const OpenFile& file, std::uint64_t transaction, bool* superseded);

}  // namespace persist
