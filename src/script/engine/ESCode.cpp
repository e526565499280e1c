#include "script/engine/ESCode.h"

#include "script/engine/ESProgram.h"

using namespace Qt::StringLiterals;

namespace {

struct OpcodeRow
{
    const char *name = nullptr, *operands = nullptr;
};

constexpr auto opcodeRows = [] {
    std::array<OpcodeRow, 256> rows;
#define SCRIPT_OP(number, name, operands) rows[number] = {#name, operands};
#include "script/engine/ScriptOpcodes.def"
#undef SCRIPT_OP
    return rows;
}();

} // namespace

const char *esOperands(quint8 opcode)
{
    return opcodeRows[opcode].operands;
}

QString ESSource::line(int number) const
{
    if (number < 1)
        return {};
    qsizetype start = 0;
    for (int i = 1; i < number; ++i) {
        start = text.indexOf(u'\n', start) + 1;
        if (start == 0)
            return {};
    }
    const qsizetype end = text.indexOf(u'\n', start);
    return text.mid(start, end < 0 ? -1 : end - start).append(u""); // an empty line isn't null
}

ESCode::ESCode() = default;
ESCode::~ESCode() = default;

quint32 ESCode::lineAt(quint32 offset) const
{
    const auto after = std::upper_bound(lines.begin(), lines.end(), offset,
                                        [](quint32 at, const LineChange &change) { return at < change.offset; });
    return after == lines.begin() ? 0 : std::prev(after)->line;
}

QString ESCode::listing(const ESObject *global) const
{
    QString text;
    quint32 wide = 0;
    for (size_t at = 0; at < bytes.size();) {
        const auto op = ESOpcode(bytes[at]);
        const OpcodeRow &row = opcodeRows[bytes[at]];
        quint32 first = 0;
        text += QString::asprintf("%04x:  %s", uint(at++), row.name);
        for (const char *kind = row.operands; *kind; ++kind, at += 2) {
            quint32 value = quint32(bytes[at] << 8 | bytes[at + 1]);
            if (kind == row.operands)
                first = value |= wide << 16;
            const auto named = [&](const ESSymbol *symbol) { text += u'\t' + (symbol ? symbol->text() : u"?"_s); };
            switch (*kind) {
            case 'k': text += QString::asprintf("\t%g", constants[value]); break;
            case 'n': named(symbols[value]); break;
            case 'p': named(parameters[value].symbol); break;
            case 'l': named(locals[value].symbol); break;
            case 'g':
                named(global->slotName(value));
                text += u" [idx=%1]"_s.arg(value);
                break;
            case 'a': text += QString::asprintf("\t%04x", value); break;
            default: text += QString::asprintf(kind == row.operands ? "\t#%d" : ", #%d", int(value));
            }
        }
        wide = op == ESOpcode::op_WIDE ? first : 0;
        text += u'\n';
    }
    return text;
}
