#include "debug/dwarf/DwarfAbbreviations.h"

// A byte picks the format and the order of bytes, two give the length of the table; what follows the table is taken
// for the attributes of one entry of each abbreviation.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3)
        return 0;
    const DwarfFormat format = {quint8(data[0] & 2 ? 8 : 4), quint8(data[0] & 4 ? 8 : 4)};
    ByteCursor input({data + 1, size - 1}, data[0] & 1);
    const DwarfAbbreviationTable table(input.take(std::min<quint64>(input.readU16(), quint64(input.remaining()))),
                                       format);
    for (quint64 code = 0; code < 300; ++code) {
        const qint32 index = table.indexOf(code);
        if (index < 0)
            continue;
        ByteCursor quick = input, slow = input;
        table.skipAttributes(table.at(quint32(index)), quick);
        for (const DwarfAttributeSpecification &attribute : table.attributes(table.at(quint32(index))))
            skipDwarfForm(slow, attribute.form, format);
        // Both ways over an entry end at one place.
        if (quick.failed() != slow.failed() || (!quick.failed() && quick.offset() != slow.offset()))
            __builtin_trap();
    }
    return 0;
}
