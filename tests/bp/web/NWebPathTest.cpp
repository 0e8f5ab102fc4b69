// The mapping of request targets to paths inside the page's folder.

#include <gtest/gtest.h>

#include "NWebPath.h"

namespace {

TEST(WebPathTest, TargetsMapInsideTheFolderOrAreRefused) {
    const struct {
        const char* target;
        const char* path;  // nullptr: refused
    } kCases[] = {
        {"/", "index.html"},
        {"/app.js?v=3#x", "app.js"},
        {"//assets///a.css", "assets/a.css"},
        {"/docs/", "docs/index.html"},
        {"/a%20b.png", "a b.png"},
        {"/caf%C3%A9.txt", "caf\xC3\xA9.txt"},
        {"", nullptr},
        {"index.html", nullptr},
        {"/../etc/passwd", nullptr},
        {"/a/./b", nullptr},
        {"/%2e%2e/x", nullptr},
        {"/a%2Fb", nullptr},
        {"/.git/config", nullptr},
        {"/a%00b", nullptr},
        {"/a%0", nullptr},
        {"/a%g0", nullptr},
        {"/a\\b", nullptr},
        {"/a\x7f", nullptr},
    };
    for (const auto& c : kCases) {
        std::string path = "untouched";
        EXPECT_EQ(c.path != nullptr, NWebPath::Resolve(c.target, path)) << c.target;
        EXPECT_EQ(c.path ? c.path : "untouched", path) << c.target;
    }
    std::string path;
    EXPECT_FALSE(NWebPath::Resolve("/" + std::string(NWebPath::kMaxTargetBytes, 'a'), path));
}

}  // namespace
