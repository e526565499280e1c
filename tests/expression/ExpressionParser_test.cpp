#include "expression/ExpressionParser.h"
#include "expression/ParserException.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace {

// A place in a toy program: an integer variable, or a pointer to the variables behind it.
class ToyPlace : public MarkerType
{
public:
    ToyPlace(const QString &placeName, qint64 number) : name(placeName), content(number) {}
    ExpressionValue value() const override { return ExpressionValue::ofSigned(content, 4); }
    bool equals(const MarkerType &other) const override { return this == &other; }

    QString name;
    qint64 content;
};

// Knows the variables x (5) and y (3), the pointer p, the types T and "struct S" and the template Vec, and
// writes down what it is asked.
class ToyParser : public ExpressionParser
{
public:
    MarkerType *lookup(const QString &name) override
    {
        log += name;
        if (name == u"x")
            return &x;
        if (name == u"y")
            return &y;
        return name == u"p" ? &p : ExpressionParser::lookup(name);
    }
    MarkerType *lookupScoped(const QStringList &names) override
    {
        log += names.join(u"|"_s);
        return &y;
    }
    bool isTypeName(const QString &name) override { return name == u"T" || name == u"struct S"; }
    bool isTemplateName(const QString &name) override { return name == u"Vec"; }
    bool isPointer(MarkerType *marker) override { return marker == &p; }
    MarkerType *pointerAdd(MarkerType *marker, qint64 n) override { return note(u"move"_s, marker, n); }
    MarkerType *index(MarkerType *marker, qint64 n) override { return note(u"index"_s, marker, n); }
    MarkerType *field(MarkerType *marker, const QString &name) override { return note(u"field "_s + name, marker, 0); }
    MarkerType *fieldPath(MarkerType *marker, const QStringList &names) override
    {
        return note(u"path "_s + names.join(u"|"_s), marker, 0);
    }
    MarkerType *cast(const BaseType &type, const ExpressionValue &) override
    {
        return note(u"cast "_s + type.toString(), &y, 0);
    }
    ExpressionValue sizeOfType(const BaseType &type) override
    {
        log += u"size "_s + type.toString();
        return ExpressionValue::ofUnsigned(4, 4);
    }
    ExpressionValue assign(MarkerType *marker, const ExpressionValue &value) override
    {
        static_cast<ToyPlace *>(marker)->content = value.asSigned();
        return value;
    }
    ExpressionValue markerValue(MarkerType *marker) override { return marker->value(); }
    ExpressionValue call(MarkerType *marker, const QList<ExpressionValue> &arguments) override
    {
        note(u"call"_s, marker, arguments.size());
        return ExpressionValue::ofSigned(plainValue(arguments.last()).asSigned());
    }

    ToyPlace x{u"x"_s, 5}, y{u"y"_s, 3}, p{u"p"_s, 1000};
    QStringList log;

private:
    MarkerType *note(const QString &what, MarkerType *marker, qint64 n)
    {
        log += u"%1 %2 %3"_s.arg(what, static_cast<ToyPlace *>(marker)->name).arg(n);
        return marker;
    }
};

qint64 toyValue(ToyParser &parser, const char *text)
{
    parser.log.clear();
    return plainValue(parser.evaluate(QString::fromLatin1(text))).asSigned();
}

TEST(ExpressionParser, ReadsAndWritesPlaces)
{
    ToyParser parser;
    EXPECT_EQ(toyValue(parser, "x - y"), 2);
    EXPECT_EQ(parser.log, QStringList({u"y"_s, u"x"_s})) << "the right side comes first";
    EXPECT_EQ(toyValue(parser, "x += y * 2"), 11);
    EXPECT_EQ(parser.x.content, 11);
    EXPECT_EQ(toyValue(parser, "x++"), 12) << "the new value, as with ++x";
    EXPECT_EQ(toyValue(parser, "--x"), 11);
    EXPECT_EQ(toyValue(parser, "y = x"), 11);
    EXPECT_THROW(toyValue(parser, "x = y = 1"), ParserException) << "assignments group from the left";
    EXPECT_EQ(toyValue(parser, "x && 0"), 0);
    EXPECT_EQ(parser.log, QStringList({u"x"_s})) << "both sides are always evaluated";
}

TEST(ExpressionParser, AsksForIndicesMembersAndCalls)
{
    ToyParser parser;
    const struct
    {
        const char *text;
        QStringList log;
    } rows[] = {
        {"p[2]", {u"p"_s, u"index p 2"_s}},
        {"p[x]", {u"p"_s, u"x"_s, u"index p 5"_s}},
        {"*p", {u"p"_s, u"index p 0"_s}},
        {"p + 3", {u"p"_s, u"move p 3"_s}},
        {"p - 3", {u"p"_s}},
        {"x + 3", {u"x"_s}},
        {"p->a.b", {u"p"_s, u"field a p 0"_s, u"field b p 0"_s}},
        {"p->a::b", {u"p"_s, u"path a|b p 0"_s}},
        {"a::b::c", {u"a|b|c"_s}},
        {"x(1, y)", {u"x"_s, u"y"_s, u"call x 2"_s}},
        {"(T *[x])y", {u"y"_s, u"cast T*[x] y 0"_s}},
        {"(T::U)1", {u"cast T::U y 0"_s}},
        {"(struct S *)1", {u"cast struct S* y 0"_s}},
        {"(struct { int a; char :3; })1", {u"cast int a;char :3; y 0"_s}},
        {"(register 4 low 0 16 \"high\" 16 16;)1", {u"cast low 16 0 high 16 16 y 0"_s}},
        {"(unsigned)1", {u"cast unsigned int y 0"_s}},
        {"(const long long unsigned int volatile)1", {u"cast unsigned long long y 0"_s}},
        {"(float)1", {u"cast float y 0"_s}},
        {"sizeof(T)", {u"size T"_s}},
        {"sizeof(Vec<const char*,Vec<int>>)", {u"size Vec<const char*, Vec<int> >"_s}},
        {"Vec<int>::size", {u"Vec<int>|size"_s}},
        {"y + Vec::a", {u"Vec|a"_s, u"y"_s}},
    };
    for (const auto &row : rows) {
        toyValue(parser, row.text);
        EXPECT_EQ(parser.log, row.log) << row.text;
    }
    EXPECT_THROW(toyValue(parser, "sizeof(Vec<int"), ParserException);
    EXPECT_EQ(toyValue(parser, "(x)[0]"), 5) << "a name that is no type is a bracket";
}

TEST(Expression, ShowsItsTreeAsText)
{
    const struct
    {
        const char *text, *shown;
    } rows[] = {
        {"1 + 2 * 3", "(0x1+(0x2*0x3))"},
        {"a = b = c", "((a=b)=c)"},
        {"a += 1", "(a=(a+0x1))"},
        {"a[0]--", "(a[0x0]=(a[0x0]-0x1))"},
        {"!a && ~b || -c", "((LogicalNotExpression(a)&&BitNotExpression(b))||NegateExpression(c))"},
        {"*a->b", "a.b[0x0]"},
        {"&a::b", "(&a::b)"},
        {"@sp << 2", "(@sp<<0x2)"},
        {"(int*)a", "(int*)a"},
        {"f(1, -x)", "f(0x1,NegateExpression(x))"},
        {"sizeof a", "sizeof(a)"},
        {"addressof(\"m.c\", 12)", "addressof(\"m.c\",12)"},
    };
    SimpleExpressionParser parser;
    for (const auto &row : rows)
        EXPECT_EQ(parser.parse(QString::fromLatin1(row.text))->toString(), QString::fromLatin1(row.shown)) << row.text;
}

TEST(Expression, BindsNamesInTheWholeTree)
{
    SimpleExpressionParser parser;
    const auto tree = parser.parse(u"HEAD + (CURRENT - HEAD) * 2"_s);
    tree->bind(u"HEAD"_s, 16);
    EXPECT_THROW(tree->evaluate(), ParserException);
    tree->bind(u"CURRENT"_s, 20);
    EXPECT_EQ(tree->evaluate().asUnsigned(), 24u);
    EXPECT_EQ(tree->evaluate().size(), 4u);
    EXPECT_EQ(tree->toString(), u"(0x10+((0x14-0x10)*0x2))"_s);
}

} // namespace
