// The part of ExpressionParser that reads types and names with template arguments.
#include "expression/ExpressionParser.h"
#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

namespace {

struct TypeWord
{
    const char *word;
    SimpleType::Code code;
};
constexpr TypeWord typeWords[] = {
    {"double", SimpleType::Double}, {"float", SimpleType::Float}, {"long", SimpleType::Long},
    {"int", SimpleType::Int},       {"short", SimpleType::Short}, {"char", SimpleType::Char},
};

} // namespace

// A type without a declarator; null when none begins here.
std::unique_ptr<BaseType> ExpressionParser::parseType()
{
    if (std::unique_ptr<BaseType> simple = parseSimpleType())
        return simple;
    const QString first = m_lexer->text().toString();
    if (token() != TOKEN_IDENT)
        return nullptr;
    if (!isTypeName(first) && !isTemplateName(first))
        return parseQualifiedType();
    QString name = parseTemplateName();
    while (accept(TOKEN_COLONCOLON))
        name += u"::"_s + parseTemplateName();
    return std::make_unique<UserType>(name);
}

// A type that is named with the namespaces around it; null, with nothing taken, for other names.
std::unique_ptr<BaseType> ExpressionParser::parseQualifiedType()
{
    const Lexer::Place start = m_lexer->place();
    QString name = takeIdentifier();
    bool isQualified = false;
    while (accept(TOKEN_COLONCOLON)) {
        isQualified = true;
        name += u"::"_s + parseTemplateName();
    }
    if (isQualified && isTypeName(name))
        return std::make_unique<UserType>(name);
    m_lexer->setPlace(start);
    return nullptr;
}

std::unique_ptr<BaseType> ExpressionParser::parseTypeText(const QString &text)
{
    m_nesting = 0;
    m_lexer->setInput(text);
    m_lexer->next();
    std::unique_ptr<BaseType> type = parseType();
    if (type)
        type = parseDeclarator(std::move(type));
    return token() == TOKEN_EOL ? std::move(type) : nullptr;
}

// Words of a simple type in any order that C knows: "unsigned long int", "char const".
std::unique_ptr<BaseType> ExpressionParser::parseSimpleType()
{
    bool isUnsigned = false, hasSign = false;
    std::optional<SimpleType::Code> code;
    for (;;) {
        if (acceptWord("unsigned")) {
            isUnsigned = hasSign = true;
        } else if (acceptWord("signed")) {
            hasSign = true;
        } else if (acceptWord("const") || acceptWord("volatile")) {
        } else if (!code) {
            const auto isHere = [this](const TypeWord &row) { return acceptWord(row.word); };
            const auto row = std::ranges::find_if(typeWords, isHere);
            if (row == std::end(typeWords))
                break;
            code = row->code;
        } else if (code == SimpleType::Long && acceptWord("long")) {
            code = SimpleType::LongLong;
        } else if (!((code == SimpleType::Short || code == SimpleType::Long || code == SimpleType::LongLong) &&
                     acceptWord("int"))) {
            break;
        }
    }
    if (!code && !hasSign)
        return nullptr;
    return std::make_unique<SimpleType>(code.value_or(SimpleType::Int), isUnsigned);
}

// { "*" | "[" expression "]" | "::" identifier }
std::unique_ptr<BaseType> ExpressionParser::parseDeclarator(std::unique_ptr<BaseType> type)
{
    for (;;) {
        if (accept(TOKEN_STAR)) {
            type = std::make_unique<PointerType>(std::move(type));
        } else if (accept(TOKEN_LBRACK)) {
            ExpressionPointer count = parseBinary(-4);
            expect(TOKEN_RBRACK, "']' expected");
            type = std::make_unique<ArrayType>(std::move(type), std::move(count));
        } else if (accept(TOKEN_COLONCOLON)) {
            auto *user = dynamic_cast<UserType *>(type.get());
            if (!user)
                throw ParserException(u"UserType expected"_s);
            user->name += u"::"_s + takeIdentifier();
        } else if (!acceptWord("const") && !acceptWord("volatile")) {
            return type;
        }
    }
}

// What may stand behind the bracket that opens a cast; null when it opens something else.
std::unique_ptr<BaseType> ExpressionParser::parseCastType()
{
    if (acceptWord("struct"))
        return parseStruct();
    if (acceptWord("register"))
        return parseRegister();
    return parseType();
}

// Behind "struct": identifier, or "{" { type [ identifier ] [ ":" integer ] ";" } "}"
std::unique_ptr<BaseType> ExpressionParser::parseStruct()
{
    if (token() == TOKEN_IDENT) {
        const QString name = u"struct "_s + takeText();
        if (!isTypeName(name))
            throw ParserException(u"struct type not found"_s);
        return std::make_unique<UserType>(name);
    }
    expect(TOKEN_LCURLY, "'{' expected");
    auto structure = std::make_unique<StructType>();
    while (!accept(TOKEN_RCURLY)) {
        StructType::Field field;
        field.type = parseType();
        if (!field.type)
            throw ParserException(u"struct parse error"_s);
        if (token() == TOKEN_IDENT)
            field.name = takeText();
        if (accept(TOKEN_COLON))
            field.bitCount = takeInteger("integer must follow ':'");
        expect(TOKEN_SEMICOLON, "';' expected");
        structure->fields.push_back(std::move(field));
    }
    return structure;
}

// Behind "register": size { name offset size } ";"
std::unique_ptr<BaseType> ExpressionParser::parseRegister()
{
    auto layout = std::make_unique<RegisterType>();
    layout->size = takeInteger("size expected");
    while (!accept(TOKEN_SEMICOLON)) {
        RegisterType::Field field;
        field.name = token() == TOKEN_IDENT ? takeText() : takeQuoted("fieldname expected");
        field.bitOffset = takeInteger("bitoffset expected");
        field.bitSize = takeInteger("bitsize expected");
        layout->fields.push_back(field);
    }
    return layout;
}

// An identifier, with its arguments if it is a template's name: "Pair<int, Pair<char, long> >".
QString ExpressionParser::parseTemplateName()
{
    QString name = takeIdentifier();
    if (!isTemplateName(name))
        return name;
    if (token() != TOKEN_LT) {
        m_lexer->setPrecedence(10); // a template without arguments takes part in no operation
        return name;
    }
    int level = 0;
    bool afterWord = false;
    do {
        const Token here = token();
        const bool isWord = here == TOKEN_IDENT || here == TOKEN_INTEGER || here == TOKEN_HEXINTEGER;
        if (here == TOKEN_EOL)
            throw ParserException(u"unexpected token "_s + Lexer::tokenName(here));
        if (here == TOKEN_LT) {
            ++level;
            name += u'<';
        } else if (here == TOKEN_GT || here == TOKEN_RSHIFT) {
            for (int closed = here == TOKEN_GT ? 1 : 2; closed > 0 && level > 0; --closed, --level)
                name += name.endsWith(u'>') ? u" >"_s : u">"_s;
        } else {
            if (afterWord && isWord)
                name += u' ';
            name += here == TOKEN_COMMA ? u", "_s : m_lexer->text().toString();
        }
        afterWord = isWord;
        m_lexer->next();
    } while (level > 0);
    return name;
}
