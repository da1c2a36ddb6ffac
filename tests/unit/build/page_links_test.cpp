// The pages of the tree: what they link to is there, headings included.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path root = KORVEL_SOURCE_DIR;

// Those of the tree itself, not of what was built in it.
std::vector<fs::path> pages()
{
    std::vector<fs::path> found;
    for (const char *folder : {"", "docs", "gateway", "platform", "web"})
        for (const fs::directory_entry &entry : fs::directory_iterator(root / folder))
            if (entry.path().extension() == ".md")
                found.push_back(entry.path());
    return found;
}

std::string content(const fs::path &file)
{
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// How a link calls a heading: small letters, blanks as hyphens, other signs left out.
std::string anchor_of(const std::string &heading)
{
    std::string anchor;
    for (const char c : heading)
        if (c == ' ')
            anchor += '-';
        else if (isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_')
            anchor += static_cast<char>(tolower(c));
    return anchor;
}

std::set<std::string> anchors(const fs::path &page)
{
    std::set<std::string> found;
    std::ifstream lines(page);
    for (std::string line; std::getline(lines, line);)
        if (const size_t begin = line.find_first_not_of('#'); begin != 0 && begin != std::string::npos)
            found.insert(anchor_of(line.substr(begin + 1)));
    return found;
}

// Why a link of a page leads nowhere; empty when it does lead somewhere.
std::string fault_of(const std::string &link, const fs::path &page)
{
    const size_t sign = link.find('#');
    const fs::path target = sign == 0 ? page : page.parent_path() / link.substr(0, sign);
    if (!fs::exists(target))
        return "no such file";
    if (sign == std::string::npos || anchors(target).contains(link.substr(sign + 1)))
        return "";
    return "no such heading";
}

TEST(page_links, lead_somewhere)
{
    const std::regex expression(R"(\]\(([^)\s]+)\))");
    size_t count = 0;
    for (const fs::path &page : pages()) {
        const std::string text = content(page);
        for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
            const std::string link = at->str(1);
            if (link.find("://") != std::string::npos)
                continue;
            EXPECT_EQ("", fault_of(link, page)) << page << ": " << link;
            count++;
        }
    }
    EXPECT_LT(20U, count);
}

TEST(page_links, one_that_leads_nowhere_is_noticed)
{
    const fs::path page = root / "docs/behaviour.md";

    EXPECT_EQ("", fault_of("#oddities-that-are-kept", page));
    EXPECT_EQ("", fault_of("../README.md#how-a-request-flows", page));
    EXPECT_EQ("no such heading", fault_of("#nothing", page));
    EXPECT_EQ("no such file", fault_of("nothing.md", page));
}

} // namespace
