#include "expression/ExpressionParser.h"
#include "expression/ParserException.h"

namespace {

// Takes names that begin with T for types and with V for templates, so that all of the grammar is reached.
class FuzzParser : public ExpressionParser
{
    bool isTypeName(const QString &name) override { return name.startsWith(u'T'); }
    bool isTemplateName(const QString &name) override { return name.startsWith(u'V'); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzParser parser;
    try {
        const auto tree = parser.parse(QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size)));
        if (tree) {
            tree->toString();
            tree->evaluate();
        }
    } catch (const ParserException &) {
    }
    return 0;
}
