#include <gtest/gtest.h>

#ifndef _WIN32
#include <unistd.h>
#endif

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "system/Path.h"
#include "tests/TemporaryStore.h"

// What the store says of a root, beside what it then does there.

namespace {

namespace fs = std::filesystem;

class Root : public testing::Test {
protected:
    static persist::CPersistService& service() { return TemporaryStore::service(); }

    const std::string kText = "a document";
    TemporaryStore store_;
};

/// What is said of a root, and whether a database can be made in it, which must go together.
struct RootAnswer {
    bool usable;
    bool writable;
    bool creates;
    std::string reason;
};

RootAnswer tryRoot(const fs::path& root) {
    const persist::RootStatus status = TemporaryStore::service().setRootPath(sys::textOf(root));
    EXPECT_EQ(status.usable(), static_cast<bool>(status));
    return {status.usable(), status.writable(), TemporaryStore::service().initDb("A", false), status.reason()};
}

TEST_F(Root, ARootIsToldFromOneThatCannotBeUsed) {
    const fs::path base = store_.path().parent_path();
    std::ofstream(base / "file") << "a file";
    EXPECT_TRUE(service().setRootPath(sys::textOf(base / "new" / "root")));
    EXPECT_FALSE(fs::exists(base / "new")) << "asking makes nothing";
    for (const fs::path& good : {base / "new" / "root", base / "new" / "root", base / "slash" / "", base}) {
        const RootAnswer answer = tryRoot(good);
        EXPECT_TRUE(answer.usable && answer.writable && answer.creates) << good << answer.reason;
        EXPECT_EQ(answer.reason, "");
    }
#ifndef _WIN32
    fs::create_symlink(base / "nowhere", base / "dangling");
#endif
    const std::vector<std::pair<fs::path, std::string>> bad{
        {"", "no root is named"},
        {base / "file", "it cannot be used: Not a directory"},
#ifdef _WIN32
        {base / "file" / "root", "it is not there and cannot be made: Not a directory"},
        {base / "what?", "it cannot be used: Invalid argument"},
#else
        {base / "file" / "root", "it cannot be used: Not a directory"},
        {base / "dangling", "it cannot be used: No such file or directory"},
        {base / "dangling" / "root", "it is not there and cannot be made: No such file or directory"},
        {base / std::string(300, 'x'), "it cannot be used: File name too long"},
#endif
    };
    for (const auto& [root, reason] : bad) {
        const RootAnswer answer = tryRoot(root);
        EXPECT_FALSE(answer.usable || answer.writable || answer.creates) << root;
        EXPECT_EQ(answer.reason, reason) << root;
    }
}

TEST_F(Root, ATextThatIsNoPathIsNoRoot) {
    std::vector<std::string> texts{sys::textOf(store_.path()) + std::string("\0x", 2)};
#ifdef _WIN32  // elsewhere a name may be any bytes
    texts.emplace_back("\xFF\xFE");
    texts.emplace_back("half a character \xE4\xB8");
#endif
    for (const std::string& text : texts) {
        const persist::RootStatus status = service().setRootPath(text);
        EXPECT_FALSE(status.usable());
        EXPECT_EQ(status.reason(), "it cannot be used: malformed UTF-8, or a NUL in it");
        EXPECT_FALSE(service().initDb("A", false) || service().writeDocuments("A", ReadyBatch{{"1", kText}}, false));
        EXPECT_EQ(service().rootPath(), text);
    }
    EXPECT_FALSE(fs::exists(store_.path()));
}

#ifndef _WIN32  // Wine gives everybody every right
TEST_F(Root, ARootWithoutRightsIsReadOnlyOrNone) {
    constexpr uid_t kNobody = 65534;
    const fs::path base = store_.path().parent_path();
    fs::permissions(base, fs::perms::all);
    const uid_t user = ::geteuid();
    if (user == 0) {
        ASSERT_EQ(::seteuid(kNobody), 0);  // who is root may do everything
    }
    for (const auto& [name, mode] : {std::pair("read", 0555), std::pair("none", 0444)}) {
        EXPECT_TRUE(tryRoot(base / name).creates && service().writeDocuments("A", ReadyBatch{{"1", kText}}, false));
        fs::permissions(base / name, static_cast<fs::perms>(mode));
    }
    const RootAnswer none = tryRoot(base / "none");
    const RootAnswer missing = tryRoot(base / "read" / "root");
    const RootAnswer readOnly{service().setRootPath(base / "read").usable(),
                              persist::RootStatus::of(base / "read").writable(), service().initDb("B", false),
                              persist::RootStatus::of(base / "read").reason()};
    std::string text;
    service().visitData("A", "1", [&](std::string_view /*key*/, std::string_view bytes) {
        text = bytes;
        return false;
    });
    ASSERT_EQ(::seteuid(user), 0);
    fs::permissions(base / "read", fs::perms(0755));
    fs::permissions(base / "none", fs::perms(0755));
    EXPECT_FALSE(none.usable || none.creates);
    EXPECT_EQ(none.reason, "it cannot be used: Permission denied");
    EXPECT_FALSE(missing.usable || missing.creates);
    EXPECT_EQ(missing.reason, "it is not there and cannot be made: Permission denied");
    EXPECT_TRUE(readOnly.usable && !readOnly.writable && !readOnly.creates);
    EXPECT_EQ(readOnly.reason, "no database can be made in it: Permission denied");
    EXPECT_EQ(text, kText) << "what is there is read";
}
#endif

}  // namespace
