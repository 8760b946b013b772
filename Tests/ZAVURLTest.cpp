#include <ZAVEventRepository/ZAVURL.h>
#include <gtest/gtest.h>
#include <uriparser/Uri.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zav::test {
namespace {

ZAVURL url(std::string_view text) {
    auto parsed = ZAVURL::URLWithString(text);
    EXPECT_TRUE(parsed) << "'" << text << "' was refused";
    return parsed.value_or(ZAVURL::fileURLWithDirectoryPath("/refused"));
}

ZAVURL url(std::string_view text, const ZAVURL& base) {
    auto parsed = ZAVURL::URLWithString(text, base);
    EXPECT_TRUE(parsed) << "'" << text << "' was refused";
    return parsed.value_or(ZAVURL::fileURLWithDirectoryPath("/refused"));
}

const ZAVURL& cacheDirectory() {
    static const ZAVURL directory = ZAVURL::fileURLWithDirectoryPath("/var/cache/store");
    return directory;
}

TEST(URLParsing, KeepsTheTextOfAReferenceAsItIs) {
    for (const char* text : {
             "",
             "https://example.org",
             "https://user@example.org:8080/a/b;c=1?q=%20x#fragment",
             "HTTP://Example.ORG/%7Euser/../a/./b",
             "https://[2001:db8::1]/x",
             "urn:isbn:0451450523",
             "mailto:someone@example.org",
             "file:///var/data/part-0",
             "a/b/../c",
             "../../up",
             "/absolute/path",
             "//example.org/path",
             "?query",
             "#fragment",
             "./a:b",
             "%C3%A9",
             "a//b///c",
         }) {
        const auto parsed = ZAVURL::URLWithString(text);
        ASSERT_TRUE(parsed) << "'" << text << "' was refused";
        EXPECT_EQ(parsed->text(), text);
        EXPECT_EQ(parsed->absoluteString(), text) << "a URL that stands alone is its own text";
        EXPECT_EQ(parsed->baseURL(), std::nullopt);
    }
}

/// Whether the parser of URLs takes a text, and whether it then finds a scheme.
std::optional<bool> schemeFoundByTheParser(std::string_view text) {
    UriUriA uri;
    if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) != URI_SUCCESS) {
        return std::nullopt;
    }
    const bool hasScheme = uri.scheme.first != nullptr;
    uriFreeUriMembersA(&uri);
    return hasScheme;
}

/// Calls with each text of so many of these characters, or fewer, after a beginning.
void forEachText(std::string text, std::string_view characters, int size,
                 const std::function<void(const std::string&)>& call) {
    call(text);
    if (size > 0) {
        for (const char character : characters) {
            forEachText(text + character, characters, size - 1, call);
        }
    }
}

void expectWhatTheParserFinds(const std::string& text) {
    const auto scheme = schemeFoundByTheParser(text);
    const auto url = ZAVURL::URLWithString(text, cacheDirectory());
    if (ZAVURL::isURL(text) != scheme.has_value() || url.has_value() != scheme.has_value() ||
        (url && url->baseURL().has_value() == *scheme)) {
        ADD_FAILURE() << "'" << text << "' is not taken as the parser takes it";
    }
}

TEST(URLParsing, FindsInEveryShortTextWhatTheParserFinds) {
    constexpr std::string_view characters = "a1:/?#@.-+_%[\xC3 ";
    forEachText("", characters, 4, expectWhatTheParserFinds);
    for (const char* const beginning :
         {"s://", "s://h", "s://h/", "s://h?", "s:/", "a/", "1.2.3.", "s://1.2."}) {
        forEachText(beginning, characters, 3, expectWhatTheParserFinds);
    }
    for (int character = 0; character < 256; ++character) {
        for (const char* const beginning : {"", "a", "a/b", "s", "s://", "s://h", "s://h/p", "s://h/p?q"}) {
            const std::string text = std::string(beginning) + static_cast<char>(character);
            expectWhatTheParserFinds(text);
            expectWhatTheParserFinds(text + "z");
        }
    }
}

TEST(URLParsing, RefusesWhatIsNoReference) {
    for (const std::string_view text : {
             std::string_view("a b"),
             std::string_view(" https://example.org"),
             std::string_view("https://example.org/ "),
             std::string_view("https://example.org/a\tb"),
             std::string_view("https://example.org/a\n"),
             std::string_view("a\0b", 3),
             std::string_view("caf\xC3\xA9"),
             std::string_view("https://b\xC3\xBC"
                              "cher.example/"),
             std::string_view("\xFF"),
             std::string_view("%"),
             std::string_view("a%2"),
             std::string_view("a%zz"),
             std::string_view("a%2g"),
             std::string_view("a\\b"),
             std::string_view("<a>"),
             std::string_view("a\"b"),
             std::string_view("{a}"),
             std::string_view("a|b"),
             std::string_view("a^b"),
             std::string_view("a`b"),
             std::string_view("a#b#c"),
             std::string_view("https://[2001:db8::1/x"),
             std::string_view("https://example.org:port/"),
             std::string_view("1:2"),
             std::string_view(":a"),
         }) {
        EXPECT_EQ(ZAVURL::URLWithString(text), std::nullopt) << "'" << text << "' was read as a URL";
        EXPECT_EQ(ZAVURL::URLWithString(text, cacheDirectory()), std::nullopt)
            << "'" << text << "' was read as a URL relative to a base";
    }
}

TEST(URLParsing, TakesATextThatHasNoCharactersAtAll) {
    const auto parsed = ZAVURL::URLWithString(std::string_view());
    ASSERT_TRUE(parsed) << "the empty text is a reference";
    EXPECT_EQ(parsed->text(), "");
    const auto based = ZAVURL::URLWithString(std::string_view(), cacheDirectory());
    ASSERT_TRUE(based) << "the empty text is a reference to the base itself";
    EXPECT_EQ(based->text(), "");
    EXPECT_EQ(based->absoluteString(), "file:///var/cache/store/");
}

TEST(URLParsing, OwnsItsText) {
    std::string text = "https://example.org/a";
    const ZAVURL parsed = url(text);
    text.assign(text.size(), 'x');
    EXPECT_EQ(parsed.text(), "https://example.org/a");
}

TEST(URLWithABase, KeepsItsTextAsRelativePath) {
    for (const char* text :
         {"app/user/event/part-0", "a/../b", "./a", "../a", "a//b", "/a/b", "a%2Fb%41", "a?b#c", ""}) {
        const ZAVURL parsed = url(text, cacheDirectory());
        EXPECT_EQ(parsed.relativePath(), text) << "what was read is not what would be written back";
        EXPECT_EQ(parsed.text(), text);
        EXPECT_EQ(parsed.baseURL(), cacheDirectory());
    }
}

TEST(URLWithABase, LosesTheBaseWhenItHasAScheme) {
    const ZAVURL parsed = url("https://example.org/a/b", cacheDirectory());
    EXPECT_EQ(parsed.baseURL(), std::nullopt);
    EXPECT_EQ(parsed.absoluteString(), "https://example.org/a/b");
    EXPECT_EQ(parsed.relativePath(), "/a/b");
    EXPECT_EQ(parsed, url("https://example.org/a/b"));
}

TEST(URLAlone, AnswersItsPathComponentAsRelativePath) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://example.org/a/b?q=/x#/f", "/a/b"},
        {"https://example.org", ""},
        {"https://example.org?q", ""},
        {"https://example.org/", "/"},
        {"file:///a%20b/../c", "/a%20b/../c"},
        {"urn:isbn:1", "isbn:1"},
        {"//example.org/a", "/a"},
        {"a/b:c", "a/b:c"},
        {"./a:b", "./a:b"},
        {"a/b?c", "a/b"},
        {"?c:d/e", ""},
        {"", ""},
    };
    for (const auto& [text, path] : cases) {
        EXPECT_EQ(url(text).relativePath(), path) << "the path of '" << text << "'";
    }
}

TEST(URLResolution, FollowsTheReferenceExamples) {
    const ZAVURL base = url("http://a/b/c/d;p?q");
    const std::pair<const char*, const char*> cases[] = {
        {"g:h", "g:h"},
        {"g", "http://a/b/c/g"},
        {"./g", "http://a/b/c/g"},
        {"g/", "http://a/b/c/g/"},
        {"/g", "http://a/g"},
        {"//g", "http://g"},
        {"?y", "http://a/b/c/d;p?y"},
        {"g?y", "http://a/b/c/g?y"},
        {"#s", "http://a/b/c/d;p?q#s"},
        {"g#s", "http://a/b/c/g#s"},
        {"g?y#s", "http://a/b/c/g?y#s"},
        {";x", "http://a/b/c/;x"},
        {"g;x", "http://a/b/c/g;x"},
        {"g;x?y#s", "http://a/b/c/g;x?y#s"},
        {"", "http://a/b/c/d;p?q"},
        {".", "http://a/b/c/"},
        {"./", "http://a/b/c/"},
        {"..", "http://a/b/"},
        {"../", "http://a/b/"},
        {"../g", "http://a/b/g"},
        {"../..", "http://a/"},
        {"../../", "http://a/"},
        {"../../g", "http://a/g"},
        {"../../../g", "http://a/g"},
        {"../../../../g", "http://a/g"},
        {"/./g", "http://a/g"},
        {"/../g", "http://a/g"},
        {"g.", "http://a/b/c/g."},
        {".g", "http://a/b/c/.g"},
        {"g..", "http://a/b/c/g.."},
        {"..g", "http://a/b/c/..g"},
        {"./../g", "http://a/b/g"},
        {"./g/.", "http://a/b/c/g/"},
        {"g/./h", "http://a/b/c/g/h"},
        {"g/../h", "http://a/b/c/h"},
        {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
        {"g;x=1/../y", "http://a/b/c/y"},
        {"g?y/./x", "http://a/b/c/g?y/./x"},
        {"g?y/../x", "http://a/b/c/g?y/../x"},
        {"g#s/./x", "http://a/b/c/g#s/./x"},
        {"g#s/../x", "http://a/b/c/g#s/../x"},
        {"http:g", "http:g"},
    };
    for (const auto& [text, absolute] : cases) {
        EXPECT_EQ(url(text, base).absoluteString(), absolute) << "'" << text << "' resolved";
    }
}

TEST(URLResolution, FindsAFileInItsDirectory) {
    const ZAVURL file = url("app/user/part-0", cacheDirectory());
    EXPECT_EQ(file.absoluteString(), "file:///var/cache/store/app/user/part-0");
    EXPECT_EQ(file.filePath(), "/var/cache/store/app/user/part-0");
}

TEST(URLResolution, GoesThroughABaseThatHasABaseItself) {
    const ZAVURL directory = url("app/user/", cacheDirectory());
    const ZAVURL file = url("part-0", directory);
    EXPECT_EQ(file.absoluteString(), "file:///var/cache/store/app/user/part-0");
    EXPECT_EQ(file.relativePath(), "part-0");
}

TEST(URLResolution, LeavesTheTextAsItIsWhenTheBaseIsRelativeItself) {
    const ZAVURL file = url("part-0?x", url("app/user/"));
    EXPECT_EQ(file.absoluteString(), "part-0?x") << "there is no absolute URL to resolve against";
    EXPECT_EQ(file.filePath(), "part-0");
}

TEST(URLResolution, WaitsUntilItIsAskedFor) {
    const ZAVURL file = url("a/../b", cacheDirectory());
    EXPECT_EQ(file.text(), "a/../b");
    EXPECT_EQ(file.absoluteString(), "file:///var/cache/store/b");
    EXPECT_EQ(file.text(), "a/../b") << "asking for the absolute string changed the text";
}

TEST(DirectoryURL, EscapesWhatAURLCannotHoldAndEndsWithASlash) {
    const std::pair<const char*, const char*> cases[] = {
        {"/var/data", "file:///var/data/"},
        {"/var/data/", "file:///var/data/"},
        {"/", "file:///"},
        {"/a b/\xC3\xBC", "file:///a%20b/%C3%BC/"},
        {"/100%/a?b#c", "file:///100%25/a%3Fb%23c/"},
        {"/[x]\\\"", "file:///%5Bx%5D%5C%22/"},
    };
    for (const auto& [path, text] : cases) {
        const ZAVURL directory = ZAVURL::fileURLWithDirectoryPath(path);
        EXPECT_EQ(directory.text(), text) << "the URL of the directory " << path;
        EXPECT_TRUE(ZAVURL::URLWithString(directory.text())) << "the URL of " << path << " is no URL";
        const std::string given = path;
        EXPECT_EQ(directory.filePath(), given.ends_with('/') ? given : given + '/');
    }
}

TEST(URLFilePath, IsThePathThatTheFileSystemKnows) {
    EXPECT_EQ(url("file:///a%20b/%C3%BC").filePath(), "/a b/\xC3\xBC");
    EXPECT_EQ(url("file:///a+b?q#f").filePath(), "/a+b") << "a plus sign is no blank in a path";
    const ZAVURL directory = ZAVURL::fileURLWithDirectoryPath("/my files");
    EXPECT_EQ(url("x/%41", directory).filePath(), "/my files/x/A");
}

TEST(URLEquality, IsThatOfTextAndBase) {
    EXPECT_EQ(url("a", cacheDirectory()), url("a", ZAVURL::fileURLWithDirectoryPath("/var/cache/store/")));
    EXPECT_NE(url("a", cacheDirectory()), url("b", cacheDirectory()));
    EXPECT_NE(url("a", cacheDirectory()), url("a"));
    EXPECT_NE(url("a"), url("a", cacheDirectory()));
    EXPECT_NE(url("a", cacheDirectory()), url("a", url("https://example.org/")));
    EXPECT_NE(url("a", cacheDirectory()), url("file:///var/cache/store/a"))
        << "one was read relative to a directory, the other was not";
}

TEST(URLCopy, OutlivesItsOriginalAndItsBase) {
    std::optional<ZAVURL> copy;
    {
        const ZAVURL base = url("https://example.org/a/");
        const ZAVURL original = url("b", base);
        copy = original;
    }
    EXPECT_EQ(copy->absoluteString(), "https://example.org/a/b");
}

TEST(ZAVURL, APathDoesNotBecomeAHostWhenItIsResolved) {
    const auto base = ZAVURL::URLWithString("z:/");
    ASSERT_TRUE(base);
    const auto resolved = ZAVURL::URLWithString("/.//h:x", *base);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->absoluteString(), "z:/.//h:x");
    EXPECT_TRUE(ZAVURL::URLWithString(resolved->absoluteString())) << "what was resolved is no URL";
}

TEST(URLMovedAway, IsTheEmptyReference) {
    ZAVURL source = url("https://example.org/a");
    const ZAVURL target = std::move(source);
    EXPECT_EQ(target, url("https://example.org/a"));
    EXPECT_EQ(source.text(), "");
    EXPECT_EQ(source.absoluteString(), "");
    EXPECT_EQ(source.relativePath(), "");
    EXPECT_EQ(source.filePath(), "");
    EXPECT_EQ(source.baseURL(), std::nullopt);
    EXPECT_EQ(source, url(""));
    EXPECT_NE(source, target);
    const ZAVURL copy = source;
    EXPECT_EQ(copy, source);
    EXPECT_EQ(url("part", source).absoluteString(), "part") << "an empty base resolves nothing";
    source = target;
    EXPECT_EQ(source, target) << "a URL that was moved away cannot be used again";
}

}  // namespace
}  // namespace zav::test
