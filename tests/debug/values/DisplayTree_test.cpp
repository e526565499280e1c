#include "debug/values/DisplayTree.h"

#include "debug/values/TestTarget.h"
#include "debug/values/TypeDescriptions.h"
#include "debug/values/ValueText.h"
#include "support/QtPrinters.h"

namespace {

const char treeText[] = R"(
#define KEEP __attribute__((used))
struct Pair { int a; char b; };
struct Node { int value; Node *next; };
struct Shape { int id; virtual int area(int x) { return x + id; } int plain() { return id; } };
struct Square : Shape { int side; int area(int) override { return side * side; } };
template <class T> struct Chain { Chain *next; T value; };
template <class T> struct Box { T inner; };
template <class K, class V> struct Entry { K key; V data; };
struct Text { const char *data; unsigned length; };
KEEP Pair pair = {1, 'x'};
KEEP Pair pairs[2] = {{1, 'a'}, {2, 'b'}};
KEEP Node self = {5, &self};
KEEP Square square;
KEEP _Complex float complex = 1.5f;
KEEP int numbers[4] = {1, 2, 3, 4}; KEEP int *behind = numbers; KEEP int **twice = &behind;
KEEP const char *name = "name"; KEEP char buffer[8] = "abc"; KEEP char names[2][4] = {"ab", "c"}; KEEP void *nothing = (void *)0x70000000;
KEEP int function(int x) { return x; } KEEP int (*handler)(int) = function;
KEEP Chain<int> head = {&head, 0}, second = {&head, 2}, first = {&second, 1};
KEEP Box<Pair> box = {{3, 'z'}};
KEEP Entry<int, Box<char> > entry = {4, {'q'}};
KEEP Text text = {"hello world", 5};
extern "C" KEEP int main() { return square.area(3) + square.plain(); }
)";

// Rows as lines of text: "name=value" and, for what lies in a row, " {" to "}".
class TextRows : public VariableListBuilder
{
public:
    Mode pointerMode(const QString &, const QString &typeName, quint64, quint32 *count) override
    {
        *count = 2;
        return typeName == u"const char" ? Text : pointers;
    }
    Mode arrayMode(const QString &, const QString &, quint32 *) override { return arrays; }
    void addValue(const QString &name, const QString &expression, const ExpressionValue &value, const QString &typeName,
                  const QString &location) override
    {
        add(name, value);
        expressions += expression;
        types += typeName;
        locations += location;
    }
    Token beginStruct(const QString &name, const QString &, const ExpressionValue &value, const QString &,
                      const QString &) override
    {
        add(name, value);
        text += u" {";
        deepest = std::max(deepest, ++depth);
        return Token(++opened);
    }
    void endStruct(Token token) override
    {
        text += u" }";
        --depth;
        EXPECT_LE(token, Token(opened));
    }
    Token beginArray(const QString &name, const QString &expression, const ExpressionValue &value, const QString &type,
                     const QString &location) override
    {
        return beginStruct(name, expression, value, type, location);
    }
    void endArray(Token token) override { endStruct(token); }
    bool showVirtualFunctions(const QString &) override { return showFunctions; }

    QString text;
    QStringList expressions, types, locations;
    Mode pointers = Plain, arrays = Elements;
    bool showFunctions = false;
    int opened = 0, depth = 0, deepest = 0;

private:
    void add(const QString &name, const ExpressionValue &value)
    {
        if (!text.isEmpty())
            text += u' ';
        text += name + u'=' + toText(value);
    }
};

const char descriptionText[] = R"xml(<Types>
  <List Name="Chain" Condition="CURRENT != HEAD" Head="(*($(T)*)HEAD).next" Data="(*($(T)*)CURRENT).value"
        Next="(*($(T)*)CURRENT).next"/>
  <Expr Name="Box" Expr="(*($(T)*)HEAD).inner"/>
  <Tuple Name="Entry" a="(*($(T)*)HEAD).key" b="*($(T1)*)(HEAD + 4)" size="sizeof($(T1.T0))" wrong="nonsense"/>
  <String Name="Text" Data="(*($(T)*)HEAD).data" Length="(*($(T)*)HEAD).length"/>
  <Type Name="Pair" Type="Node"/>
</Types>)xml";

class DisplayTreeTest : public testing::TestWithParam<Compiler>
{
protected:
    void SetUp() override
    {
        const QString path = compiledOnce(GetParam(), treeText);
        if (path.isEmpty())
            GTEST_SKIP() << "arm-none-eabi-g++ isn't installed";
        file = std::make_unique<ElfDwarfFile>(path);
        file->load();
        evaluator = std::make_unique<TestEvaluator>(*file);
    }
    QString shown(const char *expression, int level = DisplayTree::maximumDepth)
    {
        const QString text = QString::fromLatin1(expression);
        rows.text.clear();
        DisplayTree tree(*evaluator, rows);
        tree.setMaximumLevel(level);
        tree.show(text, text, evaluator->evaluate(text));
        return rows.text;
    }
    QString address(const char *symbol)
    {
        return QString::number(file->elf().symbolNamed(QString::fromLatin1(symbol))->value());
    }

    std::unique_ptr<ElfDwarfFile> file;
    std::unique_ptr<TestEvaluator> evaluator;
    TextRows rows;
};

TEST_P(DisplayTreeTest, ShowsStructuresAndArrays)
{
    EXPECT_EQ(shown("pair"), u"pair=<struct> { a=1 b=%1 }"_s.arg(int('x')));
    EXPECT_EQ(rows.expressions, (QStringList{u"pair.a"_s, u"pair.b"_s}));
    EXPECT_EQ(rows.types, (QStringList{u"int"_s, u"char"_s}));
    EXPECT_EQ(shown("pairs"), u"pairs=<array> { [0]=<struct> { a=1 b=97 } [1]=<struct> { a=2 b=98 } }"_s);
    EXPECT_EQ(shown("*&pair"), u"*&pair=<struct> { a=1 b=120 }"_s);
    EXPECT_EQ(rows.expressions.last(), u"(*&pair).b"_s);
    EXPECT_EQ(shown("pairs", 1), u"pairs=<array> { [0]=<struct> { } [1]=<struct> { } }"_s);
    EXPECT_EQ(shown("pairs", 0), u"pairs=<array>"_s);
    EXPECT_EQ(shown("1 + 1"), u"1 + 1=2"_s);
    EXPECT_EQ(shown("complex"), u"complex=<complex> { creal(complex)=1.5 cimag(complex)=0 }"_s);
    const quint32 real = address("complex").toUInt();
    EXPECT_EQ(rows.locations.value(rows.locations.size() - 2).toUInt(nullptr, 0), real);
    EXPECT_EQ(rows.locations.last().toUInt(nullptr, 0), real + 4);
    EXPECT_EQ(shown("function"), u"function=function(int)"_s);
}

TEST_P(DisplayTreeTest, ShowsPointersAsTheBuilderSays)
{
    EXPECT_EQ(shown("behind"), u"behind="_s + address("numbers"));
    EXPECT_EQ(shown("name"), u"name=name"_s);
    EXPECT_EQ(rows.types.last(), u"char *"_s);
    rows.pointers = VariableListBuilder::Follow;
    EXPECT_EQ(shown("behind"), u"behind=%1 { *=1 }"_s.arg(address("numbers")));
    EXPECT_EQ(rows.expressions.last(), u"*(behind)"_s);
    EXPECT_EQ(shown("twice"), u"twice=%1 { *=%2 { *=1 } }"_s.arg(address("behind"), address("numbers")));
    rows.pointers = VariableListBuilder::Elements;
    EXPECT_EQ(shown("behind"), u"behind=%1 { [0]=1 [1]=2 }"_s.arg(address("numbers")));
    EXPECT_EQ(rows.expressions.last(), u"behind[1]"_s);
    EXPECT_EQ(shown("buffer"), u"buffer=\"abc\" { [0]=97 [1]=98 [2]=99 [3]=0 [4]=0 [5]=0 [6]=0 [7]=0 }"_s);
    rows.arrays = VariableListBuilder::Text;
    EXPECT_EQ(shown("buffer"), u"buffer=abc"_s);
    EXPECT_EQ(shown("names"), u"names=<array> { [0]=ab [1]=c }"_s);
    EXPECT_EQ(rows.expressions.last(), u"names[1]"_s);
    rows.arrays = VariableListBuilder::Plain;
    EXPECT_EQ(shown("buffer"), u"buffer=\"abc\""_s);
}

TEST_P(DisplayTreeTest, EndsWhereDataGoRoundInACircle)
{
    rows.pointers = VariableListBuilder::Follow;
    shown("self");
    EXPECT_GT(rows.deepest, 20);
    EXPECT_LE(rows.deepest, DisplayTree::maximumDepth);
    EXPECT_EQ(rows.depth, 0);
    DisplayTree tree(*evaluator, rows);
    tree.setMaximumRows(10);
    tree.show(u"pairs"_s, u"pairs"_s, evaluator->evaluate(u"pairs"_s));
    EXPECT_FALSE(tree.isTruncated());
    tree.show(u"self"_s, u"self"_s, evaluator->evaluate(u"self"_s));
    EXPECT_TRUE(tree.isTruncated());
}

TEST_P(DisplayTreeTest, WhatCantBeReadIsToldInItsRow)
{
    rows.pointers = VariableListBuilder::Follow;
    EXPECT_TRUE(shown("(Pair*)nothing").contains(u"a=<memory at 0x70000000 can't be read"_s))
        << rows.text.toStdString();
    EXPECT_EQ(rows.depth, 0);
}

TEST_P(DisplayTreeTest, ShowsBasesAndFunctions)
{
    const quint32 table = file->elf().symbolNamed(u"vtable for Square"_s)->value() + 8;
    evaluator->memory.pokeUint32(file->elf().symbolNamed(u"square"_s)->value(), table); // as its constructor would
    EXPECT_EQ(shown("square"), u"square=<struct> { _vptr$Shape=%1 id=0 side=0 }"_s.arg(table));
    EXPECT_EQ(rows.expressions, (QStringList{u"square::Shape._vptr$Shape"_s, u"square::Shape.id"_s, u"square.side"_s}));
    rows.showFunctions = true;
    EXPECT_TRUE(shown("square").contains(u" area=Square::area(int) plain=Shape::plain() side=0"_s))
        << rows.text.toStdString(); // the base's row of the object's table
    EXPECT_TRUE(shown("square").endsWith(u" area=Square::area(int) }"_s)) << rows.text.toStdString();
}

TEST_P(DisplayTreeTest, ShowsTypesByTheirDescriptions)
{
    XMLDocument document;
    ASSERT_TRUE(document.parse(descriptionText));
    evaluator->descriptions = document.root();
    EXPECT_EQ(shown("head"), u"head=<struct Chain> { }"_s);
    EXPECT_TRUE(shown("first").startsWith(u"first=<struct Chain> { 0=2 1=0 2=0 "_s)); // the head leads to itself
    EXPECT_EQ(rows.text.count(u'='), 257);
    EXPECT_EQ(shown("text"), u"text=hello"_s);
    EXPECT_EQ(shown("entry.data"), u"entry.data=113"_s);
    EXPECT_EQ(shown("entry"), u"entry=<struct> { a=4 b=113 size=1 wrong=<nonsense symbol not found> }"_s);
    EXPECT_TRUE(shown("box").startsWith(u"box=<struct> { value=3 next="_s)); // a Pair, shown as a Node
    EXPECT_TRUE(evaluator->reports.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Orders, DisplayTreeTest, testing::ValuesIn(bothOrders()), [](const auto &compiler) {
    return std::string(compiler.param.name, compiler.param.name[0] == 'l' ? 6 : 3);
});

TEST(TypeDescriptions, SplitsTemplateNames)
{
    struct SplitCase
    {
        const char *name, *outer;
        QStringList arguments;
    };
    const SplitCase rows[] = {
        {"int", "int", {}},
        {"Box<int>", "Box", {u"int"_s}},
        {"std::map<int, Box<char, 2> >", "std::map", {u"int"_s, u"Box<char, 2>"_s}},
        {"F<int (*)(int, char), 3>", "F", {u"int (*)(int, char)"_s, u"3"_s}},
        {"Pair<A<B<int>>, C>", "Pair", {u"A<B<int>>"_s, u"C"_s}},
        {"Empty<>", "Empty", {}},
        {"operator<", "operator<", {}},
        {"<>", "<>", {}},
    };
    for (const SplitCase &row : rows) {
        QStringList arguments;
        EXPECT_EQ(splitTemplateName(QString::fromLatin1(row.name), arguments), QString::fromLatin1(row.outer));
        EXPECT_EQ(arguments, row.arguments) << row.name;
    }
}

TEST(TypeDescriptions, FindsTheExactNameBeforeTheTemplate)
{
    XMLDocument document;
    ASSERT_TRUE(document.parse("<T><A Name='Box'/><B Name='Box&lt;int&gt;'/><C Name='Plain'/></T>"));
    QStringList arguments;
    EXPECT_EQ(findTypeDescription(document.root(), u"Box<int>"_s, arguments)->name(), "B");
    EXPECT_EQ(findTypeDescription(document.root(), u"Box<char>"_s, arguments)->name(), "A");
    EXPECT_EQ(arguments, QStringList{u"char"_s});
    EXPECT_EQ(findTypeDescription(document.root(), u"Plain"_s, arguments)->name(), "C");
    EXPECT_FALSE(findTypeDescription(document.root(), u"Plain<int>x"_s, arguments));
    EXPECT_FALSE(findTypeDescription(nullptr, u"Box"_s, arguments));
}

TEST(TypeDescriptions, RefusesWhatIsNoFileOfThem)
{
    const TemporaryFolder folder;
    for (const char *text : {"<T><A></T>", "", "no xml"}) {
        const QString path = folder.write("types.xml", text);
        EXPECT_THROW(TypeDescriptionFile file(path), HException) << text;
    }
    EXPECT_THROW(TypeDescriptionFile file(folder.path("none.xml")), HException);
}

} // namespace
