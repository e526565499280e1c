#include "debug/verbs/DisassembleVerb.h"

#include "base/HException.h"
#include "debug/disassembly/CodeListing.h"
#include "debug/disassembly/SourceInterleaver.h"
#include "debug/verbs/ReportingFile.h"
#include "debug/verbs/Results.h"
#include "debug/verbs/SymbolSearch.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

struct CodeRange
{
    quint32 first, last; // both included
};

// Lines of source files, which are read once.
class SourceTexts
{
public:
    // A null text for a file that can't be read and a line that it hasn't.
    QString line(const QString &path, int number)
    {
        const auto found = m_files.constFind(path);
        const QStringList &lines = found == m_files.constEnd() ? *m_files.insert(path, read(path)) : *found;
        if (number < 1 || number > lines.size())
            return {};
        return lines[number - 1].isNull() ? u""_s : lines[number - 1];
    }

private:
    static QStringList read(const QString &path)
    {
        constexpr qint64 maximumSize = 64 << 20;
        QFile file(path);
        // The path comes from the program's debug information and may name anything.
        if (const QFileInfo info(path); !info.isFile() || info.size() > maximumSize || !file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n');
    }

    QHash<QString, QStringList> m_files;
};

const char *kindName(CodeRow::Kind kind)
{
    switch (kind) {
    case CodeRow::Arm: return "arm";
    case CodeRow::Thumb: return "thumb";
    case CodeRow::RiscV: return "riscv";
    case CodeRow::Data: break;
    }
    return "data";
}

void appendHex(QByteArray &text, quint32 value, int digits)
{
    constexpr char digit[] = "0123456789abcdef";
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        text += digit[value >> shift & 15];
}

// The unit of encoding: a halfword in Thumb, else the whole instruction.
void appendEncoding(QByteArray &text, const CodeRow &row, bool bigEndian)
{
    const qsizetype start = text.size(), width = 10;
    const qsizetype unit = row.kind == CodeRow::Thumb ? 2 : qsizetype(row.bytes.size());
    for (size_t at = 0; at < row.bytes.size(); at += size_t(unit)) {
        if (at)
            text += ' ';
        for (qsizetype i = 0; i < unit; ++i)
            appendHex(text, row.bytes[at + size_t(bigEndian ? i : unit - 1 - i)], 2);
    }
    text.append(std::max<qsizetype>(width - (text.size() - start), 1), ' ');
}

void appendName(QByteArray &text, const QByteArray &name)
{
    if (!name.isEmpty())
        text.append(" <").append(name).append('>');
}

// The listing as text.
class TextListing
{
public:
    TextListing(CodeListing &code, const ElfFile &elf, bool source)
        : m_code(code),
          m_source(source),
          m_interleaver([this](const QString &path, int line) { return m_texts.line(path, line); }),
          m_codeBigEndian(elf.bigEndian() && elf.isArm() && !(elf.header().e_flags & EF_ARM_BE8)),
          m_dataBigEndian(elf.bigEndian())
    {}
    ~TextListing() { printOut(QByteArrayView(m_text)); }

    void beginSection(const ElfSection &section) { m_text += "section " + section.name().toUtf8() + '\n'; }
    void endSection() { m_text += '\n'; }
    void add(const CodeRow &row)
    {
        if (m_source && row.sourceRow) {
            for (const QString &line : m_interleaver.linesBefore(m_code.pathOf(*row.sourceRow), row.sourceRow->line))
                m_text += line.toUtf8() + '\n';
        }
        if (row.symbol && row.symbol->address == row.address)
            m_text.append('<').append(CodeSymbols::nameOf(*row.symbol)).append(">\n");
        m_interleaver.countInstruction();
        m_text += "    0x";
        appendHex(m_text, row.address, 8);
        m_text += "  ";
        appendEncoding(m_text, row, row.kind == CodeRow::Data ? m_dataBigEndian : m_codeBigEndian);
        const DisassembledInstruction &instruction = row.instruction;
        m_text += instruction.mnemonic;
        if (!instruction.operands.isEmpty()) {
            constexpr qsizetype mnemonicWidth = 8;
            m_text.append(std::max<qsizetype>(mnemonicWidth - instruction.mnemonic.size(), 1), ' ');
            m_text += instruction.operands;
        }
        appendName(m_text, row.targetName);
        appendName(m_text, row.relocation);
        if (instruction.reference) {
            m_text += " ; 0x";
            appendHex(m_text, *instruction.reference, 8);
            if (row.value) {
                m_text += " = 0x";
                appendHex(m_text, *row.value, 8);
            }
        }
        appendName(m_text, row.value ? row.valueName : row.referenceName);
        m_text += '\n';
        constexpr qsizetype portion = 1 << 16;
        if (m_text.size() > portion) {
            printOut(QByteArrayView(m_text));
            m_text.clear();
        }
    }

private:
    CodeListing &m_code;
    const bool m_source;
    SourceTexts m_texts;
    SourceInterleaver m_interleaver;
    const bool m_codeBigEndian, m_dataBigEndian;
    QByteArray m_text;
};

void writeJson(JsonWriter &json, CodeListing &code, const CodeRow &row)
{
    const DisassembledInstruction &instruction = row.instruction;
    const auto address = [&](const char *key, std::optional<quint32> value) {
        if (value)
            json.addressField(key, *value);
        else
            json.nullField(key);
    };
    const auto text = [&](const char *key, const QByteArray &value) {
        if (value.isEmpty())
            json.nullField(key);
        else
            json.field(key, QUtf8StringView(value));
    };
    json.beginObject();
    json.field("section", row.section->name());
    json.addressField("address", row.address);
    text("symbol", row.symbol ? CodeSymbols::nameOf(*row.symbol) : QByteArray());
    if (row.symbol)
        json.field("offset", row.address - row.symbol->address);
    else
        json.nullField("offset");
    json.field("kind", QLatin1StringView(kindName(row.kind)));
    json.field("bytes",
               QLatin1StringView(
                   QByteArray(reinterpret_cast<const char *>(row.bytes.data()), qsizetype(row.bytes.size())).toHex()));
    json.field("mnemonic", QLatin1StringView(instruction.mnemonic));
    json.field("operands", QLatin1StringView(instruction.operands));
    address("target", instruction.target);
    text("targetSymbol", row.targetName);
    address("reference", instruction.reference);
    text("referenceSymbol", row.referenceName);
    address("value", row.value);
    text("valueSymbol", row.valueName);
    text("relocation", row.relocation);
    if (row.sourceRow) {
        json.field("file", code.pathOf(*row.sourceRow));
        json.field("line", row.sourceRow->line);
    } else {
        json.nullField("file");
        json.nullField("line");
    }
    json.end();
}

CodeRange parseRange(const QString &text)
{
    const qsizetype dash = text.indexOf(u'-');
    if (dash <= 0)
        throw UsageError(u"'%1' is no range of addresses A-B"_s.arg(text));
    const CodeRange range = {parseAddress(text.left(dash)), parseAddress(text.mid(dash + 1))};
    if (range.last < range.first)
        throw UsageError(u"the range '%1' ends before it begins"_s.arg(text));
    return range;
}

// The pieces of a function: those that its debug information tells of, else from its symbol to its end or the next one.
std::vector<CodeRange> piecesOf(ReportingFile &file, CodeListing &code, const QString &name)
{
    const ElfSymbol *symbol = symbolOfName(file.elf(), name);
    const ElfSection *section = symbol ? file.elf().sectionOfSymbol(symbol) : nullptr;
    if (!section || std::ranges::find(code.sections(), section) == code.sections().end())
        return {};
    const quint32 start = file.dwarf().sections().addressIn(*section, symbol->value() - section->header().sh_addr);
    if (const auto function = file.dwarf().subprogramAt(start); function && function.ranges().size() > 1) {
        std::vector<CodeRange> pieces;
        for (const DwarfAddressRange &range : function.ranges())
            pieces.push_back({range.start, range.end - 1});
        return pieces;
    }
    quint32 size = symbol->size();
    if (size == 0) {
        const auto &places = code.symbols().places();
        const auto next = std::ranges::upper_bound(places, start, {}, &CodeSymbols::Place::address);
        size = (next == places.end() ? code.startOf(*section) + section->header().sh_size : next->address) - start;
    }
    return {{start, start + std::max(size, 1u) - 1}};
}

} // namespace

int dumpCode(const CommandArguments &arguments)
{
    if (arguments.has("function") && arguments.has("range"))
        throw UsageError(u"--function and --range exclude each other"_s);
    std::vector<CodeRange> ranges = {{0, ~quint32(0)}};
    if (arguments.has("range"))
        ranges = {parseRange(arguments.value("range"))};
    ReportingFile file(arguments.positional().first());
    CodeListing code(file.elf(), file.dwarf(), arguments.has("source"));
    if (arguments.has("function")) {
        ranges = piecesOf(file, code, arguments.value("function"));
        if (ranges.empty())
            throw HException(u"no function \"%1\" in %2"_s.arg(arguments.value("function"), file.path()));
    }
    Results results(arguments);
    std::optional<TextListing> text;
    if (!results.isJson())
        text.emplace(code, file.elf(), arguments.has("source"));
    bool isEmpty = true;
    for (const CodeRange &range : ranges) {
        for (const ElfSection *section : code.sections()) {
            bool isFirst = true;
            code.list(*section, range.first, range.last, [&](const CodeRow &row) {
                if (text && isFirst)
                    text->beginSection(*section);
                isFirst = isEmpty = false;
                if (text)
                    text->add(row);
                else
                    writeJson(results.json, code, row);
            });
            if (text && !isFirst)
                text->endSection();
        }
    }
    if (isEmpty)
        results.notFound();
    text.reset();
    return results.finish();
}
