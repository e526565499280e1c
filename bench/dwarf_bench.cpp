#include "base/ByteOrder.h"
#include "debug/dwarf/DwarfFile.h"

#include <benchmark/benchmark.h>

namespace {

void appendNumber(QByteArray &bytes, quint64 value, quint32 size)
{
    bytes.resize(bytes.size() + size);
    insertInteger(bytes.data(), bytes.size() - qsizetype(size), value, size, false);
}

// 1,400 units of 1,000 external variables each: name (a different one each, of 12 characters in .debug_str), file,
// line and type, as compilers write them: 12 bytes an entry.
struct Program
{
    Program()
    {
        abbreviations = QByteArray::fromHex("0111010308"
                                            "0000"
                                            "02340003"
                                            "0e"
                                            "3a0b3b05"
                                            "4913"
                                            "3f19"
                                            "0000"
                                            "00");
        for (int unit = 0; unit < 1400; ++unit) {
            QByteArray entries = QByteArray::fromHex("0400"
                                                     "00000000"
                                                     "04"
                                                     "01"
                                                     "7500");
            for (int entry = 0; entry < 1000; ++entry) {
                appendNumber(entries, 2, 1);
                appendNumber(entries, quint64(strings.size()), 4);
                strings += QByteArray("variable_") + QByteArray::number(unit * 1000 + entry) + '\0';
                appendNumber(entries, 1, 1);
                appendNumber(entries, quint64(entry), 2);
                appendNumber(entries, 11, 4);
            }
            entries += '\0';
            appendNumber(information, quint64(entries.size()), 4);
            information += entries;
        }
        sections.abbreviations = span(abbreviations);
        sections.information = span(information);
        sections.strings = span(strings);
    }
    static DwarfSections::Bytes span(const QByteArray &bytes)
    {
        return {reinterpret_cast<const quint8 *>(bytes.constData()), size_t(bytes.size())};
    }

    QByteArray abbreviations, information, strings;
    DwarfSections sections;
};

// From loading to the answer of the first look-up by name.
void nameIndexOf1400000Entries(benchmark::State &state)
{
    const Program program;
    for (auto _ : state) {
        DwarfFile file;
        file.load(program.sections);
        if (file.publicEntries(QStringLiteral("variable_700000")).size() != 1)
            state.SkipWithError("the entry isn't found");
    }
}
BENCHMARK(nameIndexOf1400000Entries)->Unit(benchmark::kMillisecond);

} // namespace
