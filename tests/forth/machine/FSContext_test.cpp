#include "ForthFixture.h"

using namespace Qt::StringLiterals;

namespace {

TEST(FSContext, StacksHold512)
{
    ForthFixture forth;
    EXPECT_EQ(forth.run(": FILL 512 0 DO I LOOP ; FILL DEPTH"), u"!stack overflow"_s);
    EXPECT_EQ(forth.session.context().dataStack.depth(), 512);
    EXPECT_EQ(forth.run(": EMPTY BEGIN DROP AGAIN ; EMPTY"), u"!stack underflow"_s);
    EXPECT_EQ(forth.run(": R 512 0 DO I >R LOOP ; R 1 >R"), u"!stack overflow"_s);
    EXPECT_EQ(forth.run(": E BEGIN R> DROP AGAIN ; E"), u"!stack underflow"_s);
    for (const char *text : {"DROP",
                             "+",
                             "1 +",
                             "1 SWAP",
                             "1 2 ROT",
                             "1 2 3 2OVER",
                             "1 !",
                             "DUP",
                             "OVER",
                             "1 2SWAP",
                             "?DUP",
                             "EXECUTE",
                             "CATCH",
                             ".",
                             "1 TUCK",
                             "2DUP",
                             "1 2DUP",
                             "1 NIP",
                             "2DROP",
                             "1 2>R",
                             "R@",
                             "2R@",
                             ": X 1 + ; X",
                             ": X DUP + ; X",
                             ": X DUP 1 < IF THEN ; X",
                             ": X = IF THEN ; X",
                             ": X DO LOOP ; X",
                             "1 : X ?DO LOOP ; X",
                             ": X CASE 1 OF ENDOF ENDCASE ; X"}) {
        ForthFixture fresh;
        EXPECT_EQ(fresh.run(text), u"!stack underflow"_s) << text;
        EXPECT_LE(fresh.session.context().dataStack.depth(), 3) << text;
    }
}

TEST(FSContext, Structures)
{
    expectPrinted({
        {"5 : X 0 DO I . LOOP ; X", "0 1 2 3 4 "},
        {": X 10 0 DO I . 3 +LOOP ; X : Y 0 6 DO I . -2 +LOOP ; Y", "0 3 6 9 6 4 2 "},
        {": X 10 0 DO 3 +LOOP ; : N 0 10 0 DO 1+ 3 +LOOP ; X N .", "4 "},
        {": X 3 3 ?DO I . LOOP 0 0 DO I . LOOP ; X", "0 "},
        {": X 2 0 DO 7 5 DO J . I . LOOP LOOP ; X", "0 5 0 6 1 5 1 6 "},
        {": X 10 0 DO I 3 = IF LEAVE THEN I . LOOP 9 . ; X", "0 1 2 9 "},
        {": X 10 0 DO I 2 = IF I EXIT THEN LOOP 9 ; 3 : Y 0 DO X . I . LOOP ; Y", "2 0 2 1 2 2 "},
        {": X DUP 0< IF .\" neg\" ELSE .\" pos\" THEN DROP ; 1 X -1 X", "pos neg "},
        {": X BEGIN DUP WHILE DUP . 1- REPEAT DROP ; 3 X : Y BEGIN DUP . 1- DUP 0= UNTIL DROP ; 2 Y", "3 2 1 2 1 "},
        {": X BEGIN DUP . 1- DUP 0< IF EXIT THEN AGAIN ; 1 X .", "1 0 -1 "},
        {": X CASE 1 OF IF ENDOF ENDCASE ;", "!control structure mismatch: no <of-sys> on control stack"},
        {": X CASE IF OF", "!control structure mismatch: no <case-sys> on control stack"},
        {": X CASE 1 OF 10 ENDOF 2 OF 20 ENDOF 30 SWAP ENDCASE . ; 1 X 2 X 3 X", "10 20 30 "},
        {": X [ AHEAD ] 1 . THEN 2 . ; X", "2 "},
        {": FACT DUP 1 > IF DUP 1- RECURSE * THEN ; 20 FACT .", "2432902008176640000 "},
        {"IF", "!no current definition"},
        {": X ; IF", "!sealed definition: X"},
        {": X BEGIN ;",
         "!control structure mismatch: no <colon-sys> on control stack; unterminated control structure?"},
        {": X THEN ;", "!control structure mismatch: no <orig> on control stack"},
        {": X DO UNTIL ;", "!control structure mismatch: no <dest> on control stack"},
        {": X IF LOOP ;", "!control structure mismatch: no <do-sys> on control stack"},
        {";", "!no current definition"},
        {": X I ;", "!control structure mismatch: I not in DO-LOOP"},
        {": X DO J ;", "!control structure mismatch: J not in DO-LOOP"},
        {": X LEAVE ;", "!control structure mismatch: LEAVE not in DO-LOOP"},
        {".\" x\"", "!interpreting a compile-only word"},
        {"['] DUP", "!interpreting a compile-only word"},
        {"CREATE X THEN", "!control structure mismatch: control stack underflow"},
        {"CREATE X 0 1 IF 5 X", ""}, // an open branch leaves the definition
    });
}

TEST(FSContext, Definitions)
{
    expectPrinted({
        {": CONST CREATE , DOES> @ ; 5 CONST FIVE 6 CONST SIX FIVE . SIX . ' FIVE >BODY @ .", "5 6 5 "},
        {": MARK .\" m\" ; IMMEDIATE : X MARK 1 . ; X", "m 1 "},
        {": D CREATE DOES> DROP .\" now\" ; IMMEDIATE : X [ D W ] ; W", "now "},
        {": UNLESS POSTPONE 0= POSTPONE IF ; IMMEDIATE : X UNLESS 1 . THEN ; 0 X 1 X", "1 "},
        {": X [ 2 3 * ] LITERAL S\" s\" . . ; X", "s 6 "},
        {": X [COMPILE] [ ; X STATE .", "0 "},
        {":NONAME DUP * ; 5 SWAP EXECUTE .", "25 "},
        {"CREATE W ' 1+ COMPILE, ' DROP COMPILE, 7 W .", "7 "},
        {"10 VALUE V V . 11 TO V V . : X TO V V . ; 12 X S\" s\" TO V V .", "10 11 12 s "},
        {"S\" s\" CONSTANT C 5 CONSTANT D C . D . : X C . D . ; X", "s 5 s 5 "},
        {"5 TO DUP", "!no store method defined"},
        {"TO", "!undefined word"},
        {": X ['] DUP EXECUTE ; 3 X .S", "\n3 3 <-Top "},
        {"] 5 .", "!no current definition"},
        {": X 5 NONSENSE ; X", "!undefined word: NONSENSE"},
        {"IMMEDIATE", "!no current definition"},
        {"CREATE A 1 , ' @ COMPILE, A . : B A ; B .", "1 1 "}, // what is added to it stays
    });
    ForthFixture forth;
    EXPECT_EQ(forth.run(": X ;\n: X ; : DUP ;"), QString());
    EXPECT_EQ(forth.notices,
              QStringList({u"test:2:redefining X in vocabulary FORTH"_s, u"test:1: previously defined here"_s,
                           u"test:2:redefining built-in DUP in vocabulary FORTH"_s}));
    // An error drops the definition, not the stacks; what was compiled before stays as it was.
    EXPECT_EQ(forth.run("1 2 : Y 3 NONSENSE"), u"!undefined word: NONSENSE"_s);
    EXPECT_EQ(forth.stack(), u"1 2"_s);
    EXPECT_FALSE(forth.session.context().isCompiling());
    EXPECT_EQ(forth.errors, QStringList(u"undefined word: NONSENSE"_s));
    EXPECT_EQ(forth.run("Y"), u"!undefined word: Y"_s);
    EXPECT_EQ(forth.run(": Y DO NONSENSE"), u"!undefined word: NONSENSE"_s);
    EXPECT_EQ(forth.run(": Y I ;"), u"!control structure mismatch: I not in DO-LOOP"_s);
}

TEST(FSContext, Locals)
{
    expectPrinted({
        {": X LOCALS| A B | A B - ; 7 9 X .", "2 "},
        {": X LOCALS| A | 5 A + TO A A . ; 1 X", "6 "},
        {": X TEMPS| T U | 3 TO T T . U . ; X", "3 0 "},
        {": F LOCALS| N | N 2 < IF N ELSE N 1- RECURSE N 2 - RECURSE + THEN ; 15 F .", "610 "},
        {": X DUP IF LOCALS| A | A . ELSE DROP .\" none\" THEN ; 5 X 0 X 6 X", "5 none 6 "},
        {": X 1 . LOCALS| A | LOCALS| B | A B - . ; 3 8 X", "1 5 "},
        {": L, S\" Q\" (LOCAL) ; IMMEDIATE : X L, Q Q * . ; 4 X", "16 "},
        {": X LOCALS| A | 3 0 DO A I + LOOP ; 10 X .S", "\n10 11 12 <-Top "},
        {": X LOCALS| A | A 5 > IF A EXIT THEN 0 ; 9 X . 1 X .", "9 0 "},
        {": INNER LOCALS| A | A 1 THROW ; : X LOCALS| B | 7 ['] INNER CATCH . DROP B . ; 3 X", "1 3 "},
        {": X LOCALS| A | [ A ] ;", "!local variable execution not supported"},
        {": X LOCALS| A | ; A", "!undefined word: A"},
        {": X LOCALS| A | ['] A ; 1 X EXECUTE", "!local variable execution not supported"},
        {": X LOCALS|", "!unexpected EOF"},
        {"LOCALS| A |", "!no current definition"},
        {": D LOCALS| A | CREATE A , DOES> LOCALS| B | B @ . ; 5 D W W", "5 "},
        {": X LOCALS| A | RECURSE ; 1 X", "!stack underflow"},
    });
}

TEST(FSContext, CatchRestores)
{
    expectPrinted({
        {": T 5 THROW ; ' T CATCH . ' DUP CATCH .", "5 -3 "},
        {"' 1+ 5 SWAP CATCH . .", "0 6 "},
        {"1 2 : T DROP DROP 3 4 5 9 THROW ; ' T CATCH .S", "\n3 4 9 <-Top "},
        {": T 1 >R 7 THROW ; ' T CATCH . R@", "7 !stack underflow"},
        {": T 5 0 DO 3 0 DO 7 THROW LOOP LOOP ; : X 2 0 DO ['] T CATCH . I . LOOP ; X", "7 0 7 1 "},
        {": A 1 THROW ; : B ['] A CATCH 1+ THROW ; ' B CATCH .", "2 "},
        {": T 65 PARSE DROP 7 THROW ; ' T CATCH xxA .", "!undefined word: XXA"},
        {": DEEP RECURSE 1 ; ' DEEP CATCH . DEEP", "-5 !return stack overflow: definitions nested too deeply"},
        {"0 VALUE XT : DEEP XT CATCH THROW ; ' DEEP TO XT DEEP", "!exception stack overflow"},
        {": L RECURSE ; : X LOCALS| A | A RECURSE ; 1 ' X CATCH . DROP", "-5 "},
        {": LOOPS 1 0 DO RECURSE LOOP ; LOOPS", "!loop stack overflow"},
    });
}

TEST(FSContext, LimitsAreErrors)
{
    ForthFixture forth;
    EXPECT_EQ(forth.run(QString(256, u'a')), u"!string buffer overflow: line of more than 255 characters"_s);
    EXPECT_EQ(forth.run(u"1 . \\ "_s + QString(249, u'a')), u"1 "_s);
    EXPECT_EQ(forth.run(QString(256, u' ')), u"!string buffer overflow: line of more than 255 characters"_s);
    const QString nested = u"IF\n"_s.repeated(99);
    EXPECT_EQ(forth.run(u": X\n"_s + nested + u"THEN\n"_s.repeated(99) + u"; 1 ."_s), u"1 "_s);
    EXPECT_EQ(forth.run(u": Y\n"_s + nested + u"IF"_s),
              u"!control structure mismatch: more than 100 open control structures"_s);
    // What failed definitions leave behind is given up when there is no room.
    for (int i = 0; i < 250; ++i)
        forth.run(": Y IF BEGIN nonsense");
    EXPECT_EQ(forth.run(u": X\n"_s + nested + u"THEN\n"_s.repeated(99) + u"; 1 ."_s), u"1 "_s);

    ForthLimits small;
    small.dictionaryBytes = 200000;
    small.stringBytes = 1 << 20;
    FSContext context(nullptr, small);
    const auto run = [&](const char *text) {
        StringSource source(u"test"_s, QString::fromLatin1(text));
        return context.interpret(source);
    };
    EXPECT_EQ(run(": G S\" abc\" BEGIN DUP ,, AGAIN ; G"), u"string buffer overflow"_s);
    EXPECT_EQ(run(": D BEGIN POSTPONE DUP AGAIN ; : X D ; IMMEDIATE : Y X ;"), u"invalid argument: dictionary full"_s);
    EXPECT_EQ(run("1 2 + DROP"), QString());
}

// Strings that nothing refers to any more go away; all others stay, wherever they are.
TEST(FSContext, StringsLiveAsLongAsACellHasThem)
{
    ForthLimits limits;
    limits.stringBytes = 4 << 20;
    FSContext context(nullptr, limits);
    const auto run = [&](const char *text) {
        StringSource source(u"test"_s, QString::fromLatin1(text));
        return context.interpret(source);
    };
    EXPECT_EQ(run("VARIABLE V S\" mem\" S\" ory\" ,, V ! S\" const\" S\" ant\" ,, CONSTANT C S\" ret\" 1 ,, >R"),
              QString());
    EXPECT_EQ(run("S\" val\" 1 ,, VALUE W : L S\" lit\" ; : M LOCALS| A | 100000 0 DO S\" waste \" I ,, DROP LOOP A ;"),
              QString());
    EXPECT_EQ(run("S\" loc\" 1 ,, M V @ C R> W L"), QString());
    QStringList cells;
    for (int i = context.dataStack.depth() - 1; i >= 0; --i)
        cells += context.dataStack.pick(i).printable();
    EXPECT_EQ(cells, QStringList({u"loc1"_s, u"memory"_s, u"constant"_s, u"ret1"_s, u"val1"_s, u"lit"_s}));
}

class InterruptingMessages final : public ForthScriptMessageInterface
{
public:
    void output(const QString &text) override
    {
        printed += text;
        context->requestInterrupt();
    }
    void error(const QString &) override {}
    void notice(const ForthLocation &, const QString &) override {}

    FSContext *context = nullptr;
    QString printed;
};

TEST(FSContext, InterruptsAreExceptionsBetweenWords)
{
    for (const char *loop : {": X BEGIN SPACE AGAIN ; X", ": X BEGIN SPACE 0 UNTIL ; X", ": X SPACE RECURSE ; X",
                             ": X 1000000000 0 DO SPACE LOOP ; X", ": X BEGIN SPACE 1 0 = UNTIL ; X",
                             ": X BEGIN SPACE 1 WHILE REPEAT ; X", ": X 1000000000 0 DO SPACE 1 +LOOP ; X"}) {
        InterruptingMessages messages;
        FSContext context(&messages);
        messages.context = &context;
        StringSource source(u"test"_s, QString::fromLatin1(loop));
        EXPECT_EQ(context.interpret(source), u"user interrupt"_s) << loop;
        EXPECT_EQ(messages.printed, u" "_s) << loop;
    }
    // The first can be caught; who insists gets out.
    InterruptingMessages messages;
    FSContext context(&messages);
    messages.context = &context;
    StringSource source(u"test"_s, u": X BEGIN SPACE AGAIN ; : Y BEGIN ['] X CATCH DROP AGAIN ; Y"_s);
    EXPECT_EQ(context.interpret(source), u"user interrupt"_s);
    EXPECT_EQ(messages.printed, u"  "_s);
}

TEST(FSContext, ConditionalCompilation)
{
    expectPrinted({
        {"0 [IF] 1 . [ELSE] 2 . [THEN] 3 .", "2 3 "},
        {"1 [IF] 1 . [ELSE] 2 . [THEN] 3 .", "1 3 "},
        {"0 [IF]\n1 [IF] nonsense [ELSE] more [THEN]\n\\ [THEN]\n[ELSE] 2 .\n[THEN] 3 .", "2 3 "},
        {"1 [if] 1 . [else] 0 [if] [then] nonsense [then] 3 .", "1 3 "},
        {"0 [IF] 1 .", "![IF] has no matching [THEN]"},
        {"[DEFINED] dup . [UNDEFINED] dup . [DEFINED] nothing .", "-1 0 0 "},
    });
}

// Each fused pair, on operands that its fast path takes and on those that it doesn't.
TEST(FSContext, FusedPairsMeanTheSame)
{
    expectPrinted({
        {"CREATE A 3 ALLOT : X 1 + ; 4 X . A X .", "5 #<DATA-ADDRESS A+1> "},
        {"CREATE A 3 ALLOT : X 1 - ; 4 X . A X .", "3 #<DATA-ADDRESS A-1> "},
        {"CREATE A : X DUP + ; 4 X . : Y DUP * ; 5 Y . A X", "8 25 !invalid argument: invalid operand combination"},
        {"CREATE A : X OVER + ; 4 5 X .S A 2 X .", "\n4 9 <-Top #<DATA-ADDRESS A+2> "},
        {"CREATE A : X SWAP - ; 4 9 X . A A 3 + X .", "5 3 "},
        {": X DUP 5 < IF 1 ELSE 2 THEN ; 4 X .S 5 X .S S\" s\" X",
         "\n4 1 <-Top \n4 1 5 2 <-Top !invalid argument: invalid operand combination"},
        {": X DUP 5 = IF 1 ELSE 2 THEN ; 5 X .S S\" s\" X .S", "\n5 1 <-Top \n5 1 s 2 <-Top "},
        {"CREATE A : X 5 = IF 1 ELSE 2 THEN . ; 5 X A X", "1 2 "},
        {"CREATE A : X = IF 1 ELSE 2 THEN . ; A A X A 5 X A 1+ A X", "1 2 2 "},
        {"CREATE A : X <> IF 1 ELSE 2 THEN . ; A A X A 5 X", "2 1 "},
        {"CREATE A : X < IF 1 ELSE 2 THEN . ; A A 1+ X 1 2 X A 2 X",
         "1 1 !invalid argument: invalid operand combination"},
        {": X 0= IF 1 ELSE 2 THEN . ; 0 X 3 X", "1 2 "},
        {"CREATE A 7 , 8 , : X 2 0 DO A I + @ . LOOP ; X : Y 3 2 DO A I + @ . LOOP ; Y",
         "7 8 !invalid address: cell fetch outside allotted region"},
        {"CREATE A 7 , 8 , : X A + @ ; 1 X . : Y 9 A ! A @ . ; Y : Z 1 A +! A @ . ; Z S\" s\" A ! Y", "8 9 10 9 "},
        {"CREATE A 1 ALLOT : X A 1+ A DO 0 I + . LOOP ; X : Y 2 0 DO A I + . LOOP ; Y",
         "#<DATA-ADDRESS A> #<DATA-ADDRESS A> #<DATA-ADDRESS A+1> "},
        {": X 0 BEGIN 1+ DUP 3 = UNTIL . 9 BEGIN 1- DUP 4 < UNTIL . 0 BEGIN 1+ DUP 4 > UNTIL . ; X", "3 3 5 "},
        {": X 3 BEGIN 1- DUP 0= UNTIL . 0 3 BEGIN 1- 2DUP = UNTIL . . ; X", "0 0 0 "},
        {": X IF 2 THEN 3 + ; 1 0 X . 1 X .", "4 5 "}, // no pair across the place where branches meet
    });
}

} // namespace
