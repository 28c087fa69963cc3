#include "repository/pircsv.h"

#include <gtest/gtest.h>

#include "repository/pirapi.h"
#include "tests/support.h"
#include "tests/unit/repository/pirtest.h"

using namespace pirtest;

namespace {
std::vector<std::string> tokens_of(const std::string &text) {
    PirCsvFile file;
    file.readText(text.data(), text.size());
    return file.tokens();
}

std::string read_failure(const std::string &path) {
    try {
        PirFreeInterface(PirReadInterfaceFile(path.c_str()));
    } catch (PirException e) {
        return e.msg;
    }
    return "";
}

void expect_type(PirTypNod *typ, int32_t kind, const std::string &name, uint32_t cnt = 0,
                 uint32_t bnd = 0, size_t children = 0) {
    ASSERT_NE(typ, nullptr);
    EXPECT_EQ(typ->typKind, kind);
    EXPECT_EQ(typ->typNam, name);
    EXPECT_EQ(typ->typCnt, cnt);
    EXPECT_EQ(typ->typBnd, bnd);
    EXPECT_EQ(typ->children.size(), children);
    for (PirNod *c : typ->children) EXPECT_EQ(c->parent, typ);
}
}  // namespace

TEST(PirCsvFile, WorkedExampleParsesToTheDescribedTree) {
    PirIntNod *ifc =
        PirReadInterfaceFile(testsupport::data_path("idl/Bank-Teller-Account.csv").c_str());
    ASSERT_EQ(ifc->children.size(), 3u);
    EXPECT_EQ(ifc->parent, nullptr);

    auto *att = child<PirAttNod>(ifc, 0);
    ASSERT_NE(att, nullptr);
    EXPECT_EQ(att->attId, "a1");
    EXPECT_EQ(att->attNam, "owner");
    EXPECT_EQ(att->attMod, 1);
    expect_type(type_of(att), 18, "");

    auto *balance = child<PirOprNod>(ifc, 1);
    ASSERT_NE(balance, nullptr);
    EXPECT_EQ(balance->oprId, "o1");
    EXPECT_EQ(balance->oprNam, "balance");
    EXPECT_EQ(balance->oprMod, 0);
    ASSERT_EQ(balance->children.size(), 1u);
    expect_type(type_of(child<PirResNod>(balance, 0)), 7, "");

    auto *transfer = child<PirOprNod>(ifc, 2);
    ASSERT_NE(transfer, nullptr);
    EXPECT_EQ(transfer->oprNam, "transfer");
    EXPECT_EQ(transfer->oprMod, 1);
    ASSERT_EQ(transfer->children.size(), 3u);
    expect_type(type_of(child<PirResNod>(transfer, 0)), 1, "");

    auto *to = child<PirParNod>(transfer, 1);
    ASSERT_NE(to, nullptr);
    EXPECT_EQ(to->parNam, "to");
    EXPECT_EQ(to->parDir, 0);
    PirTypNod *st = type_of(to);
    expect_type(st, 15, "", 2, 0, 2);
    expect_type(type_of(st, 0), 18, "bank");
    expect_type(type_of(st, 1), 3, "branch");

    auto *choice = child<PirParNod>(transfer, 2);
    ASSERT_NE(choice, nullptr);
    EXPECT_EQ(choice->parNam, "choice");
    EXPECT_EQ(choice->parDir, 1);
    PirTypNod *un = type_of(choice);
    expect_type(un, 16, "", 2, 0, 3);
    expect_type(type_of(un, 0), 3, "^discriminator");
    expect_type(type_of(un, 1), 2, "a");
    PirTypNod *seq = type_of(un, 2);
    expect_type(seq, 19, "b", 0, 10, 1);
    expect_type(type_of(seq), 10, "");
    for (size_t i = 0; i < ifc->children.size(); ++i) EXPECT_EQ(ifc->children[i]->parent, ifc);
    PirFreeInterface(ifc);
}

TEST(PirCsvFile, TokeniserJoinsAtCommentsAndCommasAndSplitsAtWhiteSpace) {
    using V = std::vector<std::string>;
    EXPECT_EQ(tokens_of("ab#x\ncd "), V{"abcd"});
    EXPECT_EQ(tokens_of("normal#x\nres . void"), (V{"normalres", ".", "void"}));
    EXPECT_EQ(tokens_of("a,b a, b , c"), (V{"ab", "a", "b", "c"}));
    EXPECT_EQ(tokens_of("opr,o1,balance,normal"), V{"opro1balancenormal"});
    EXPECT_EQ(tokens_of("opr, o1, balance, normal,"), (V{"opr", "o1", "balance", "normal"}));
    EXPECT_EQ(tokens_of("\ta\r\nb\v\fc"), (V{"a", "b", "c"}));
    // End of file inside a comment drops the token still being gathered.
    EXPECT_EQ(tokens_of("x y#tail"), V{"x"});
    EXPECT_EQ(tokens_of("x y"), (V{"x", "y"}));
    EXPECT_EQ(tokens_of("\xe9t\xc3\xa9 z"), (V{"\xe9t\xc3\xa9", "z"}));
    EXPECT_TRUE(tokens_of("# only a comment\n , ,\n\t# another").empty());
}

TEST(PirCsvFile, FilesWithoutTokensOrUnreadableFilesFail) {
    testsupport::TempDir dir;
    dir.write("comment.csv", "# nothing here\n");
    dir.write("commas.csv", ", , ,,\n");
    dir.write("blank.csv", "");
    dir.write("good.csv", "opr a b normal res . void");
    EXPECT_EQ(read_failure("comment.csv"), ".csv is empty");
    EXPECT_EQ(read_failure("commas.csv"), ".csv is empty");
    EXPECT_EQ(read_failure("blank.csv"), ".csv is empty");
    EXPECT_EQ(read_failure("absent.csv"), "can't open .csv file");
    EXPECT_EQ(read_failure("good.csv"), "");
}

TEST(PirCsvFile, RecordFieldsTakeDefaultsAndUnknownKeywordsStayUnconsumed) {
    Tree ifc = parse_text(
        "opr a b sometimes res . null par both p . long par inout q . long "
        "res . struct 2 x foo long exc E 0 res . struct 0 opr c d normal");
    auto *opr = child<PirOprNod>(ifc.get(), 0);
    ASSERT_NE(opr, nullptr);
    EXPECT_EQ(opr->oprMod, 0);
    ASSERT_EQ(opr->children.size(), 6u);
    expect_type(type_of(child<PirResNod>(opr, 0)), 0, "");
    EXPECT_EQ(child<PirParNod>(opr, 1)->parDir, 0);
    EXPECT_EQ(child<PirParNod>(opr, 2)->parDir, 2);
    // "foo" is no keyword: x stays kind 0 and foo names the second member.
    PirTypNod *st = type_of(child<PirResNod>(opr, 3));
    expect_type(st, 15, "", 2, 0, 2);
    expect_type(type_of(st, 0), 0, "x");
    expect_type(type_of(st, 1), 3, "foo");
    auto *exc = child<PirExcNod>(opr, 4);
    ASSERT_NE(exc, nullptr);
    EXPECT_EQ(exc->excNam, "E");
    EXPECT_EQ(exc->excCnt, 0u);
    EXPECT_TRUE(exc->children.empty());
    expect_type(type_of(child<PirResNod>(opr, 5)), 15, "");
    // An operation with no sub-records at the end is complete.
    EXPECT_TRUE(child<PirOprNod>(ifc.get(), 1)->children.empty());
    // Alias takes no further token and has no aliased type.
    Tree alias = parse_text("att i n normal . alias att j m normal . long");
    expect_type(type_of(alias->children[0]), 21, "");
    EXPECT_EQ(alias->children.size(), 2u);
}

TEST(PirCsvFile, MisplacedTokensAreInvalidRecords) {
    const std::string invalid = "invalid csv record";
    EXPECT_EQ(parse_failure("opr,o1,balance,normal res . void"), invalid);
    EXPECT_EQ(parse_failure("res . void"), invalid);
    // Two members announced, three written: the third's name is left over.
    EXPECT_EQ(parse_failure("opr a b normal res . struct 2 x long y long z long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . foo"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . void stray"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . void att x y normal . long"), "");
}

TEST(PirCsvFile, TruncatedOrHostileInputIsRefusedWithoutOverrun) {
    const std::string invalid = "invalid csv record";
    // Every cut of a description inside a record fails cleanly.
    std::vector<std::string> all = tokens_of(
        "att a1 owner readonly . string opr o2 transfer oneway res . void "
        "par in to . struct 2 bank string branch long exc E 1 . long "
        "par out choice . union d long 2 a short b sequence 10 . array 2 . octet");
    std::string text;
    for (size_t n = 0; n < all.size(); ++n) {
        std::string failure = text.empty() ? "" : parse_failure(text);
        EXPECT_TRUE(failure.empty() || failure == invalid) << text;
        text += all[n] + " ";
    }
    EXPECT_EQ(parse_failure(text), "");

    std::string longest(pirMaxTokenLength, 'n');
    EXPECT_EQ(parse_failure("att i " + longest + " normal . long"), "");
    EXPECT_EQ(parse_failure("att i " + longest + "n normal . long"), invalid);

    for (const char *count : {"-1", "-2147483648", "4294967295", "99999999999999999999", "3"})
        EXPECT_EQ(parse_failure(std::string("opr a b normal res . struct ") + count + " x long"),
                  invalid)
            << count;
    EXPECT_EQ(parse_failure("opr a b normal exc E -1 . long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . sequence -5 . long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . array -1 . long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . struct -0 res . struct +1 x long"), "");

    const std::string big = std::to_string(pirMaxArrayElements);
    EXPECT_EQ(parse_failure("opr a b normal res . array " + big + " . long"), "");
    EXPECT_EQ(parse_failure("opr a b normal res . array 1024 . array 1025 . long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . array 1024 . array 1024 . long"), "");

    auto nested = [](int depth) {
        std::string t = "opr a b normal res ";
        for (int i = 1; i < depth; ++i) t += ". sequence 0 ";
        return t + ". long";
    };
    EXPECT_EQ(parse_failure(nested(pirMaxTypeDepth)), "");
    EXPECT_EQ(parse_failure(nested(pirMaxTypeDepth + 1)), invalid);
    EXPECT_EQ(parse_failure(nested(100000)), invalid);
}
