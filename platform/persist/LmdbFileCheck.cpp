#include "platform/persist/LmdbFileCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace persist {
namespace {

using PageNumber = std::uint64_t;

constexpr PageNumber kNoPage = ~PageNumber{0};
constexpr std::size_t kHeaderBytes = 16;
constexpr std::size_t kNodeBytes = 8;
constexpr std::uint32_t kMagic = 0xBEEFC0DE;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint64_t kPlausibleMapBytes = std::uint64_t{1} << 40U;  // four times what the engine grows a map to
constexpr int kMaxDepth = 31;                                          // one less than the library's cursor stack

// The library knows more kinds of pages and nodes, for trees within trees and for pages that are not on disk yet. The
// engine opens no tree in those ways, so a page that says so is damaged.
constexpr std::uint16_t kBranchPage = 0x01;
constexpr std::uint16_t kLeafPage = 0x02;
constexpr std::uint16_t kOverflowPage = 0x04;
constexpr std::uint16_t kMetaPage = 0x08;
constexpr std::uint16_t kBigValue = 0x01;
constexpr std::uint16_t kIntegerKeys = 0x08;

struct TreeDescription {
    std::uint32_t pad;  // of the tree of free pages: the page size
    std::uint16_t flags;
    std::uint16_t depth;
    std::uint64_t branchPages;
    std::uint64_t leafPages;
    std::uint64_t overflowPages;
    std::uint64_t entries;
    PageNumber root;
};
static_assert(sizeof(TreeDescription) == 48);

struct Meta {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t address;
    std::uint64_t mapSize;
    TreeDescription freePages;
    TreeDescription main;
    PageNumber lastPage;
    std::uint64_t transaction;
};
static_assert(sizeof(Meta) == 136);

struct PageHeader {
    PageNumber number;
    std::uint16_t pad;
    std::uint16_t flags;
    std::uint16_t lower;  // together with upper the page count of an overflow page
    std::uint16_t upper;
};
static_assert(sizeof(PageHeader) == kHeaderBytes);

struct NodeHeader {
    std::uint16_t low;
    std::uint16_t high;
    std::uint16_t flags;
    std::uint16_t keySize;

    std::uint32_t valueSize() const { return low | static_cast<std::uint32_t>(high) << 16U; }
    PageNumber child() const { return valueSize() | static_cast<PageNumber>(flags) << 32U; }
};
static_assert(sizeof(NodeHeader) == kNodeBytes);

/// By copying, because offsets in a damaged page are aligned to nothing.
template <class Plain>
Plain copyFrom(const char* at) {
    Plain plain;
    std::memcpy(&plain, at, sizeof plain);
    return plain;
}

std::optional<Meta> readMeta(const OpenFile& file, std::size_t pageBytes, int index) {
    std::array<char, kHeaderBytes + sizeof(Meta)> bytes;
    if (!file.readAt(bytes.data(), bytes.size(), pageBytes * static_cast<std::size_t>(index))) {
        return std::nullopt;
    }
    const auto header = copyFrom<PageHeader>(bytes.data());
    const auto meta = copyFrom<Meta>(bytes.data() + kHeaderBytes);
    // The page size is what the library computes every offset with; the map size is what it asks of the system. An
    // address or other flags belong to ways of opening that the engine does not use.
    const bool plausible = (header.flags & kMetaPage) != 0 && meta.magic == kMagic && meta.version == kVersion &&
                           meta.freePages.pad == pageBytes && meta.freePages.flags == kIntegerKeys &&
                           meta.main.flags == 0 && meta.address == 0 && meta.mapSize <= kPlausibleMapBytes;
    return plausible ? std::optional(meta) : std::nullopt;
}

/// The version that a meta page names; 0 where the page is none.
std::uint32_t versionIn(const OpenFile& file, std::size_t pageBytes, int index) {
    std::array<char, kHeaderBytes + sizeof(Meta)> bytes;
    if (!file.readAt(bytes.data(), bytes.size(), pageBytes * static_cast<std::size_t>(index))) {
        return 0;
    }
    const auto meta = copyFrom<Meta>(bytes.data() + kHeaderBytes);
    return meta.magic == kMagic ? meta.version : 0;
}

/// One walk over both trees of one state of the file. It ends with the first problem: one is enough to set the file
/// aside. Pages that are neither in use nor free are none, as they only take room.
class TreeCheck {
public:
    TreeCheck(const OpenFile& file, std::size_t pageBytes, const Meta& meta)
        : file_(file), pageBytes_(pageBytes), meta_(meta), used_(meta.lastPage + 1) {}

    std::string run() {
        walkTree(meta_.main, false);
        if (problem_.empty()) {
            walkTree(meta_.freePages, true);
        }
        // Last, when all that is in use is known: the library gives out what is listed as free without a look, and the
        // next write would go over pages that readers follow.
        for (std::size_t i = 0; i < free_.size() && problem_.empty(); ++i) {
            if (used_[free_[i]]) {
                fail(free_[i], "free twice or still in use");
            }
            used_[free_[i]] = true;
        }
        return problem_;
    }

private:
    struct Counts {
        std::uint64_t branchPages = 0;
        std::uint64_t leafPages = 0;
        std::uint64_t overflowPages = 0;
        std::uint64_t entries = 0;
        std::string lastKey;
        std::string lowestKey;  // no key from here on may be less: the key of the branch node last gone through
        bool anyKey = false;
    };

    void fail(PageNumber page, const char* reason) {
        if (problem_.empty()) {
            problem_ = fmt::format("page {}: {}", page, reason);
        }
    }

    /// Takes a page for the tree, once: so a walk that a damaged page sends in circles ends. The first two pages are
    /// the meta pages.
    bool claim(PageNumber page) {
        if (page < 2 || page > meta_.lastPage) {
            fail(page, "number out of range");
        } else if (used_[page]) {
            fail(page, "used twice");
        } else {
            used_[page] = true;
        }
        return problem_.empty();
    }

    void walkTree(const TreeDescription& tree, bool freePages) {
        if (tree.root == kNoPage) {
            if (tree.depth != 0 || tree.entries != 0) {
                problem_ = "an empty tree with entries";
            }
            return;
        }
        if (tree.depth == 0 || tree.depth > kMaxDepth) {
            problem_ = "a tree of impossible depth";
            return;
        }
        // Counts are compared because they are acted upon: the library goes by some, and the engine appends to a tree
        // that is said to be empty.
        Counts counts;
        walkPage(tree.root, tree.depth, freePages, counts);
        const bool agree = counts.branchPages == tree.branchPages && counts.leafPages == tree.leafPages &&
                           counts.overflowPages == tree.overflowPages && counts.entries == tree.entries;
        if (problem_.empty() && !agree) {
            problem_ = "page or entry counts do not agree";
        }
    }

    /// `levels` is 1 for a leaf.
    void walkPage(PageNumber number, int levels, bool freePages, Counts& counts) {
        if (!claim(number)) {
            return;
        }
        std::vector<char> page(pageBytes_);
        if (!file_.readAt(page.data(), pageBytes_, number * pageBytes_)) {
            return fail(number, "beyond the end of the file");
        }
        const auto header = copyFrom<PageHeader>(page.data());
        const bool leaf = levels == 1;
        if (header.number != number || header.flags != (leaf ? kLeafPage : kBranchPage)) {
            return fail(number, "wrong number or type");
        }
        if (header.lower < kHeaderBytes || header.lower > header.upper || header.upper > pageBytes_ ||
            header.lower % 2 != 0) {
            return fail(number, "free space out of bounds");
        }
        const std::size_t nodes = (header.lower - kHeaderBytes) / sizeof(std::uint16_t);
        // The library asserts, and that ends the process, that a branch page leads to two others at least; but for the
        // tree of free pages, where it leaves some with one.
        const std::size_t fewest = leaf || freePages ? 1 : 2;
        if (nodes < fewest) {
            return fail(number, "too few nodes");
        }
        (leaf ? counts.leafPages : counts.branchPages) += 1;
        std::vector<std::pair<std::size_t, std::size_t>> extents;  // of the nodes: begin, end
        extents.reserve(nodes);
        for (std::size_t i = 0; i < nodes && problem_.empty(); ++i) {
            const auto offset = copyFrom<std::uint16_t>(page.data() + kHeaderBytes + i * sizeof(std::uint16_t));
            if (offset < header.upper || offset + kNodeBytes > pageBytes_ || offset % 2 != 0) {
                return fail(number, "node out of bounds");
            }
            const auto node = copyFrom<NodeHeader>(page.data() + offset);
            const std::size_t keyEnd = offset + kNodeBytes + node.keySize;
            if (keyEnd > pageBytes_) {
                return fail(number, "key out of bounds");
            }
            std::size_t nodeEnd = keyEnd;
            if (leaf) {
                nodeEnd += checkLeafNode(number, page, offset, node, freePages, counts);
            } else {
                // The first key of a branch page stands for all that is less than the second, and is compared with
                // nothing.
                if (i > 0) {
                    checkSeparator(number, {page.data() + offset + kNodeBytes, node.keySize}, freePages, counts);
                }
                walkPage(node.child(), levels - 1, freePages, counts);
            }
            extents.emplace_back(offset, nodeEnd + nodeEnd % 2);  // nodes begin at even offsets
        }
        checkExtents(number, header.upper, extents);
    }

    /// Nodes fill a page's end without a gap; when the library removes one, it moves the others by that rule.
    void checkExtents(PageNumber number, std::size_t begin, std::vector<std::pair<std::size_t, std::size_t>>& extents) {
        std::sort(extents.begin(), extents.end());
        for (const auto& [from, to] : extents) {
            if (from != begin) {
                return fail(number, "nodes overlap or leave a gap");
            }
            begin = to;
        }
        if (begin != pageBytes_) {
            fail(number, "nodes overlap or leave a gap");
        }
    }

    /// The bytes that the value takes in the page.
    std::size_t checkLeafNode(PageNumber number, const std::vector<char>& page, std::size_t offset,
                              const NodeHeader& node, bool freePages, Counts& counts) {
        const char* const key = page.data() + offset + kNodeBytes;
        const char* const value = key + node.keySize;
        const std::size_t left = pageBytes_ - (offset + kNodeBytes + node.keySize);
        const bool big = node.flags == kBigValue;
        const std::size_t valueBytes = big ? sizeof(PageNumber) : node.valueSize();
        if ((node.flags != 0 && !big) || valueBytes > left) {
            fail(number, "value out of bounds");
            return 0;
        }
        checkKeyOrder(number, {key, node.keySize}, freePages, counts);
        ++counts.entries;
        if (big) {
            checkOverflow(copyFrom<PageNumber>(value), node.valueSize(), freePages, counts);
        } else if (freePages) {
            noteFreePages(number, value, node.valueSize());
        }
        return valueBytes;
    }

    /// Whether one key stands before another in its tree. Free pages are filed under numbers of transactions, in the
    /// machine's order of bytes; both sizes are known by then.
    static bool before(std::string_view left, std::string_view right, bool freePages) {
        return freePages ? copyFrom<std::uint64_t>(left.data()) < copyFrom<std::uint64_t>(right.data()) : left < right;
    }

    /// A branch node's key lies between the keys of the subtrees on its two sides.
    void checkSeparator(PageNumber number, std::string_view key, bool freePages, Counts& counts) {
        if (key.empty() || (freePages && key.size() != sizeof(std::uint64_t)) ||
            (counts.anyKey && !before(counts.lastKey, key, freePages))) {
            return fail(number, "keys out of order");
        }
        counts.lowestKey.assign(key);
    }

    void checkKeyOrder(PageNumber number, std::string_view key, bool freePages, Counts& counts) {
        // A list under a later transaction than the state's own would be of pages that this state may still use.
        bool ascending = !key.empty();
        if (freePages) {
            ascending = key.size() == sizeof(std::uint64_t) && copyFrom<std::uint64_t>(key.data()) <= meta_.transaction;
        }
        ascending = ascending && (!counts.anyKey || before(counts.lastKey, key, freePages)) &&
                    (counts.lowestKey.empty() || !before(key, counts.lowestKey, freePages));
        if (!ascending) {
            return fail(number, "keys out of order");
        }
        counts.lastKey.assign(key);
        counts.anyKey = true;
    }

    void checkOverflow(PageNumber first, std::size_t valueSize, bool freePages, Counts& counts) {
        std::array<char, kHeaderBytes> bytes;
        if (first > meta_.lastPage || !file_.readAt(bytes.data(), bytes.size(), first * pageBytes_)) {
            return fail(first, "overflow page out of range");
        }
        // More pages than the value needs are sound: it may have replaced a longer one.
        const auto header = copyFrom<PageHeader>(bytes.data());
        const std::uint64_t pages = header.lower | static_cast<std::uint64_t>(header.upper) << 16U;
        const std::uint64_t needed = (kHeaderBytes + valueSize + pageBytes_ - 1) / pageBytes_;
        if (header.number != first || header.flags != kOverflowPage || pages < needed ||
            pages > meta_.lastPage - first + 1) {
            return fail(first, "not the overflow page it should be");
        }
        for (std::uint64_t i = 0; i < pages; ++i) {
            if (!claim(first + i)) {
                return;
            }
        }
        counts.overflowPages += pages;
        // Only the last byte, which tells that the file goes so far: what the value holds is for its reader to check.
        char last = 0;
        const std::uint64_t begin = first * pageBytes_ + kHeaderBytes;
        if (valueSize != 0 && !file_.readAt(&last, 1, begin + valueSize - 1)) {
            return fail(first, "beyond the end of the file");
        }
        if (freePages) {
            std::vector<char> value(valueSize);
            if (!file_.readAt(value.data(), value.size(), begin)) {
                return fail(first, "beyond the end of the file");
            }
            noteFreePages(first, value.data(), valueSize);
        }
    }

    /// A list of free pages: their count, then their numbers from the highest down, as the library relies on when it
    /// merges lists.
    void noteFreePages(PageNumber number, const char* value, std::size_t size) {
        if (size < sizeof(PageNumber)) {
            return fail(number, "list of free pages too short");
        }
        const auto count = copyFrom<std::uint64_t>(value);
        if (count > size / sizeof(PageNumber) - 1) {
            return fail(number, "list of free pages too long");
        }
        PageNumber above = kNoPage;
        for (std::uint64_t i = 1; i <= count; ++i) {
            const auto page = copyFrom<PageNumber>(value + i * sizeof(PageNumber));
            if (page < 2 || page > meta_.lastPage || page >= above) {
                return fail(number, "list of free pages out of order");
            }
            free_.push_back(page);
            above = page;
        }
    }

    const OpenFile& file_;
    const std::size_t pageBytes_;
    const Meta meta_;
    std::vector<bool> used_;
    std::vector<PageNumber> free_;
    std::string problem_;
};

/// No page beyond the file's end can be in use, but the library may count a few that it gave out and never wrote.
constexpr PageNumber kMaxUnwrittenPages = PageNumber{1} << 18U;

std::string metaProblem(const OpenFile& file) {
    const std::size_t pageBytes = systemPageBytes();
    const std::optional<std::uint64_t> bytes = file.size();
    if (!bytes) {
        return std::strerror(errno);
    }
    // Of both pages, also the one that is not in force: the library reads both before it chooses.
    std::array<std::uint64_t, 2> transactions{};
    for (const int index : {0, 1}) {
        const std::optional<Meta> meta = readMeta(file, pageBytes, index);
        if (!meta) {
            // Told apart for people alone: what cannot be read is set aside by the next load, whoever wrote it.
            const std::uint32_t version = versionIn(file, pageBytes, index);
            return version == 0 || version == kVersion
                       ? fmt::format("meta page {} is damaged", index)
                       : fmt::format("meta page {} is of version {}, not {}", index, version, kVersion);
        }
        if (meta->lastPage > *bytes / pageBytes + kMaxUnwrittenPages) {
            return fmt::format("meta page {} counts more pages than the file can have", index);
        }
        transactions[static_cast<std::size_t>(index)] = meta->transaction;
    }
    // Transactions are numbered one by one and take turns; in a new file both pages say 0.
    const auto [even, odd] = transactions;
    const bool turns = even % 2 == 0 && (odd % 2 == 1 ? odd + 1 == even || even + 1 == odd : odd == 0 && even == 0);
    return turns ? std::string() : "meta pages do not follow each other";
}

}  // namespace

std::string checkMetaPages(const OpenFile& file) {
    constexpr int kMaxAttempts = 10;
    std::string problem;
    // A writer of another process may have committed between the two reads; damage stays.
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        problem = metaProblem(file);
        if (problem.empty()) {
            break;
        }
    }
    return problem;
}

std::string checkTree(const OpenFile& file, std::uint64_t transaction, bool* superseded) {
    const std::size_t pageBytes = systemPageBytes();
    *superseded = false;
    for (const int index : {0, 1}) {
        const std::optional<Meta> meta = readMeta(file, pageBytes, index);
        if (meta && meta->transaction == transaction) {
            const std::string problem = TreeCheck(file, pageBytes, *meta).run();
            // Read while a writer replaced it, the page may have told half of two states.
            const std::optional<Meta> again = readMeta(file, pageBytes, index);
            *superseded = !problem.empty() && again && std::memcmp(&*again, &*meta, sizeof *meta) != 0;
            return *superseded ? std::string() : problem;
        }
    }
    *superseded = true;
    return {};
}

}  // namespace persist
