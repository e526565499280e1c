#include "ForthFixture.h"
#include "support/TemporaryFolder.h"

using namespace Qt::StringLiterals;

namespace {

TEST(ForthWords, IntegersAndStacks)
{
    expectPrinted({
        {"5 3 - .", "2 "},
        {"-7 2 / . -7 2 MOD . -7 2 /MOD . .", "-3 -1 -3 -1 "},
        {"9223372036854775807 1+ .", "-9223372036854775808 "},
        {"-9223372036854775808 DUP -1 / . -1 MOD .", "-9223372036854775808 0 "},
        {"9223372036854775807 4 8 */ . 7 5 3 */MOD . .", "4611686018427387903 11 2 "},
        {"1 0 /", "!divide by zero"},
        {"1 0 5 SWAP */", "!divide by zero"},
        {"1 63 LSHIFT . -1 63 RSHIFT . 1 64 LSHIFT . 1 -1 RSHIFT .", "-9223372036854775808 1 0 0 "},
        {"-5 2/ . -5 2* . -5 ABS . 5 NEGATE . 5 INVERT .", "-3 -10 5 -5 -6 "},
        {"3 4 MAX . 3 4 MIN . -1 1 U> . 1 2 >= . 2 2 >= . 3 4 <> .", "4 3 -1 0 -1 -1 "},
        {"0 0= . 0 0<> . -1 0< . 0 0> . 0 0>= .", "-1 0 -1 0 -1 "},
        {"6 3 AND . 6 3 OR . 6 3 XOR .", "2 7 5 "},
        // Differences are compared as signed numbers.
        {"5 1 10 WITHIN . 10 1 10 WITHIN . 0 1 10 WITHIN .", "-1 0 -1 "},
        {"1 2 3 ROT .S 2DROP DROP 1 2 3 -ROT .S", "\n2 3 1 <-Top \n3 1 2 <-Top "},
        {"1 2 NIP 3 TUCK .S", "\n3 2 3 <-Top "},
        {"1 2 2DUP 2OVER 2SWAP DEPTH .S", "\n1 2 1 2 1 2 6 <-Top "},
        {"1 2 3 4 2SWAP 2DROP . . 0 ?DUP 5 ?DUP .S", "4 3 \n0 5 5 <-Top "},
        {"1 >R 2 >R R@ R> R> .S 8 9 2>R 2R@ 2R> .S", "\n2 2 1 <-Top \n2 2 1 8 9 8 9 <-Top "},
        {"10 20 30 1 PICK . 0 PICK .", "20 30 "},
        {"10 1 PICK", "!invalid argument"},
        {"$FF . -%101 . #10 . +7 . -$1f .", "255 -5 10 7 -31 "},
        {"1.5", "!undefined word: 1.5"},
        {"$", "!undefined word: $"},
        {"1 5 FALSE TRUE .S", "\n1 5 0 -1 <-Top "},
    });
}

TEST(ForthWords, Floats)
{
    expectPrinted({
        {"1E . 1E5 . -2.5e-3 . +1E .", "1 100000 -0.0025 1 "},
        {"27E-1 FLOOR . 0E FSIN . 0E FCOS . 0E FTAN .", "2 0 1 0 "},
        {"E", "!undefined word: E"},
        {"1E2E3", "!undefined word: 1E2E3"},
        {"1 FSIN", "!argument type mismatch: float required"},
        {"1E 1 +", "!invalid argument: invalid operand combination"},
        {": X 25E-1 . ; X", "2.5 "},
    });
}

TEST(ForthWords, AddressesAreCheckedPairs)
{
    expectPrinted({
        {"CREATE A 10 , 20 , A . A 1 + . A 2 - . A @ . A 1+ @ .",
         "#<DATA-ADDRESS A> #<DATA-ADDRESS A+1> #<DATA-ADDRESS A-2> 10 20 "},
        {"HERE HERE - .", "0 "},
        {"CREATE A 1 A + A = . A A = . A 0 = . A A 1+ < . A A <> .", "0 -1 0 -1 0 "},
        {"CREATE A 5 ALLOT A 6 + 3 AND .", "#<DATA-ADDRESS A+2> "},
        {"CREATE A CREATE B A B -", "!invalid argument: invalid operand combination"},
        {"CREATE A CREATE B A B <", "!invalid argument: invalid operand combination"},
        {"CREATE A A A AND", "!invalid argument: invalid operand combination"},
        {"HERE 2 *", "!argument type mismatch: unrelocated literal required"},
        {"CREATE A 1 ALLOT A 1+ @", "!invalid address: cell fetch outside allotted region"},
        {"CREATE A 1 ALLOT 5 A 1- !", "!invalid address: cell store outside allotted region"},
        {"CREATE A 1 ALLOT A 1+ 2 -1 ALLOT 0 A @", "!invalid address: cell fetch outside allotted region"},
        {"CREATE A -1 ALLOT", "!invalid address: fewer cells allotted"},
        {"5 @", "!argument type mismatch: not a data address"},
        {"VARIABLE V V @ . 5 V +! 7 V +! V @ . CREATE P 2 ALLOT 1 2 P 2! P 2@ .S P @ .", "0 12 \n1 2 <-Top 2 "},
        {"CREATE A ' A >BODY A = . ' DUP >BODY", "-1 !>BODY not allowed on imported word DUP"},
        {"VOCABULARY V ' V >BODY", "!V does not have a PFA"},
        {"' DUP . CHAR+", "#<CODE-ADDRESS DUP> !stack underflow"},
        {"1000000000000000 ALLOT", "!invalid argument: dictionary full"},
        {"CREATE A 10 ALLOT : X A 10 + A DO I A - I ! LOOP A 3 + @ . ; X", "3 "}, // a loop over addresses
    });
    ForthFixture forth;
    EXPECT_TRUE(forth.run("HERE .").startsWith(u"#<DATA-ADDRESS (ANON#"_s));
}

TEST(ForthWords, Strings)
{
    expectPrinted({
        {"S\" a\" S\" b\" ,, . 1 2 ,, .", "ab 12 "},
        {"CR DEPTH . COUNT .", "1 1 "},
        {"1000 SPACES COUNT . -1 SPACES COUNT .", "500 0 "},
        {"S\" x=%1\" 3 STRING-ARG . S\" no place\" 3 STRING-ARG .", "x=3 no place "},
        {"S\" a b\" HTML-ESCAPE . S\" ä<\" HTML-ESCAPE .", "a%20b ä%3c "},
        {"S\" 12ab\" >NUMBER .S", "\n12 2 <-Top "},
        {": X .\" hi\" ; X", "hi "},
        {"CHAR abc . CHAR", "a "},
        {": X [CHAR] q . ; X", "q "},
        {"41 PARSE a) . 32 WORD   b  . CHAR ) WORD ))c)d .", "a b !undefined word: D"},
        {"CHAR ) WORD ))c) .", "c "},
        {"S\" \" COUNT . .( now) 65 EMIT SPACE 5 3 .R", "0 nowA 5"},
        {"-1 EMIT", "!invalid argument"},
        {"5 COUNT", "!argument type mismatch: string required"},
        {"( a comment\nover lines) 1 . \\ the rest 2 .", "1 "},
        {"( open", "!unexpected EOF"},
    });
}

TEST(ForthWords, WordsThatCannotBePerformed)
{
    for (const char *word : {"UNUSED", "SAVE-INPUT", "RESTORE-INPUT", "ROLL", "U<", "MOVE"})
        EXPECT_EQ(ForthFixture().run(word), u"!unimplemented word"_s) << word;
    expectPrinted({
        {"QUERY", "!olsolescent feature"},
        {"CONVERT", "!olsolescent feature"},
        {"ABORT", "!abort thrown"},
        {"0 THROW", "!0 THROW undefined"},
        {"-8 THROW", "!-8 THROW undefined"},
        {"-57 THROW", "!receive/transmit exception"},
    });
}

TEST(ForthWords, SearchOrder)
{
    expectPrinted({
        {"VOCABULARY V V DEFINITIONS : W 1 . ; ORDER FORTH W", "Search: V \nCurrent: V \n!undefined word: W"},
        {"VOCABULARY V ALSO V DEFINITIONS : DUP 7 ; ONLY FORTH 1 DUP .S V DUP .", "\n1 1 <-Top 7 "},
        {"WORDLIST SET-CURRENT : INNER ; GET-CURRENT . S\" inner\" 1 SEARCH-WORDLIST . . S\" x\" 1 SEARCH-WORDLIST .",
         "1 -1 #<CODE-ADDRESS INNER> 0 "},
        {"S\" dup\" FIND . . S\" IF\" FIND . DROP S\" none\" FIND . .", "-1 #<CODE-ADDRESS DUP> 1 0 none "},
        {"WORDLIST GET-ORDER .S SET-ORDER GET-ORDER .S", "\n1 0 1 <-Top \n1 0 1 <-Top "},
        {"WORDLIST ALSO 0 1 2 SET-ORDER GET-ORDER .S", "\n1 0 1 2 <-Top "},
        {"7 1 SET-ORDER", "!invalid wordlist"},
        {"9 SET-ORDER", "!search order overflow"},
        {"0 SET-ORDER FORTH", "!search order underflow"},
        {"PREVIOUS VOCABULARY V", "!search order underflow: No search order (VOCABULARY)"},
        {"PREVIOUS WORDS", "!search order underflow"},
        {"-1 SET-ORDER GET-ORDER .S", "\n0 1 <-Top "},
        {"ALSO ALSO ALSO ALSO ALSO ALSO ALSO ALSO", "!search order overflow"},
        {": W 7 0 DO WORDLIST . LOOP ; W WORDLIST", "1 2 3 4 5 6 7 !search order overflow"},
    });
    ForthFixture forth;
    const QString words = forth.run("WORDS");
    EXPECT_TRUE(words.startsWith(u"! ' ("_s)) << words.left(20).toStdString();
    for (const QString &line : words.split(u'\n'))
        EXPECT_LE(line.size(), 79);
    EXPECT_TRUE(words.endsWith(u" \n"_s));
}

TEST(ForthWords, Files)
{
    const TemporaryFolder folder;
    ForthFixture forth;
    const auto named = [&](const char *name) { return u"S\" "_s + folder.path(name) + u"\" "_s; };
    EXPECT_EQ(forth.run(u"R/O BIN . R/W . "_s + named("a") + u"W/O CREATE-FILE . VALUE F"_s), u"3 6 0 "_s);
    EXPECT_EQ(
        forth.run(u"S\" one\" F WRITE-LINE . S\" tw\u00f6 three\" F WRITE-FILE . F FILE-POSITION . . F CLOSE-FILE . "_s
                  "F CLOSE-FILE ."_s),
        u"0 0 0 14 0 9 "_s);
    EXPECT_EQ(folder.read("a"), "one\ntw\xc3\xb6 three");
    EXPECT_EQ(forth.run(named("a") +
                        u"R/O OPEN-FILE . TO F 80 F READ-LINE . . . 3 F READ-FILE . . 80 F READ-LINE . . . "_s
                        "80 F READ-LINE . . . 4 F REPOSITION-FILE . 2 F READ-LINE . . ."),
              u"0 0 -1 one 0 tw\u00f6 0 -1  three 0 0  0 0 -1 tw "_s);
    EXPECT_EQ(forth.run(u"3 F RESIZE-FILE 0= . F CLOSE-FILE . "_s + named("a") +
                        u"R/W CREATE-FILE . TO F 3 F RESIZE-FILE . F CLOSE-FILE ."_s),
              u"0 0 0 0 0 "_s);
    EXPECT_EQ(folder.read("a"), QByteArray(3, '\0'));
    EXPECT_EQ(forth.run(named("a") + u"DUP DELETE-FILE . DELETE-FILE . "_s + named("a") + u"R/O OPEN-FILE . ."_s),
              u"0 2 2 0 "_s);
    EXPECT_EQ(forth.run(named("") + u"R/O OPEN-FILE . . "_s + named("a") + u"8 OPEN-FILE . . 99 FILE-POSITION . ."_s),
              u"21 0 -1 0 9 0 "_s);
}

TEST(ForthWords, IncludedFilesPassExceptionsOn)
{
    const TemporaryFolder folder;
    folder.write("inner.fs", "1 .\r\n2 . \\ two\n3 DROP DROP 9 .");
    folder.write("outer.fs", QByteArray("include " + folder.path("inner.fs").toUtf8() + " 4 ."));
    folder.write("self.fs", "include " + folder.path("self.fs").toUtf8());
    folder.write("good.fs", "5 . [if] no [else] 6 . [then]");
    ForthFixture forth;
    const auto include = [&](const char *name) { return u"INCLUDE "_s + folder.path(name); };
    EXPECT_EQ(forth.run(include("outer.fs")), u"1 2 !stack underflow"_s);
    EXPECT_EQ(forth.session.context().errorPlace().location.source, folder.path("inner.fs"));
    EXPECT_EQ(forth.session.context().errorPlace().location.line, 3);
    EXPECT_EQ(forth.session.context().errorPlace().line, u"3 DROP DROP 9 ."_s);
    EXPECT_EQ(forth.run(u"S\" "_s + folder.path("outer.fs") + u"\" ' INCLUDED CATCH . DROP 7 ."_s), u"1 2 -3 7 "_s);
    EXPECT_TRUE(forth.run(include("self.fs")).startsWith(u"!invalid recursion: "_s));
    EXPECT_EQ(forth.run(u"0 "_s + include("good.fs") + u" 7 ."_s), u"5 6 7 "_s);
    EXPECT_EQ(forth.run(include("none.fs")), u"!i/o error 2"_s);
    EXPECT_EQ(forth.run(include("")), u"!i/o error 21"_s);
    EXPECT_EQ(
        forth.run(u"S\" "_s + folder.path("good.fs") + u"\" R/O OPEN-FILE DROP 0 SWAP INCLUDE-FILE SOURCE-ID ."_s),
        u"5 6 0 "_s);
    forth.session.context().includePath = {folder.root()};
    EXPECT_EQ(forth.run("1 INCLUDE good.fs"), u"5 no"_s.left(2) + u"!undefined word: NO"_s);
}

} // namespace
