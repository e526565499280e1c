#include "base/CommandLine.h"
#include "base/JsonWriter.h"
#include "elf/dump/ElfListing.h"

using namespace Qt::StringLiterals;

namespace {

constexpr const char *symbolTypes[16] = {"NOTYPE", "OBJECT", "FUNC", "SECTION", "FILE", "COMMON", "TLS", "7",
                                         "8",      "9",      "10",   "11",      "12",   "TFUNC",  "14",  "15"};
constexpr const char *symbolBindings[16] = {"LOCAL", "GLOBAL", "WEAK", "3",  "4",  "5",  "6",  "7",
                                            "8",     "9",      "10",   "11", "12", "13", "14", "15"};

// The section's name, or what a reserved number stands for.
QByteArray sectionText(const ElfFile &file, const ElfSymbol &symbol)
{
    switch (symbol.sectionIndex()) {
    case SHN_UNDEF: return "UND";
    case SHN_ABS: return "ABS";
    case SHN_COMMON: return "COM";
    }
    const ElfSection *section = file.sectionOfSymbol(&symbol);
    return section ? section->name().toUtf8() : QByteArray::number(symbol.sectionIndex());
}

// Appends `text` in a column of at least `width`, and a blank.
void appendColumn(QByteArray &line, QByteArrayView text, qsizetype width)
{
    line.append(text);
    line.append(std::max<qsizetype>(width - text.size(), 0) + 1, ' ');
}

void appendAddress(QByteArray &line, quint32 value)
{
    constexpr char digits[] = "0123456789abcdef";
    char text[] = "0x00000000 ";
    for (int i = 9; value; --i, value >>= 4)
        text[i] = digits[value & 0xF];
    line.append(text, 11);
}

void writeSymbols(const ElfFile &file, JsonWriter &json)
{
    json.beginArray("symbols");
    for (quint32 i = 0; i < quint32(file.symbolCount()); ++i) {
        const ElfSymbol *symbol = file.symbolAtIndex(i);
        json.beginObject();
        json.field("num", i);
        json.addressField("value", symbol->value());
        json.field("size", symbol->size());
        json.field("type", QLatin1StringView(symbolTypes[symbol->type()]));
        json.field("bind", QLatin1StringView(symbolBindings[symbol->binding()]));
        json.field("section", QString::fromUtf8(sectionText(file, *symbol)));
        json.field("name", symbol->name());
        json.end();
    }
    json.end();
}

void writeSegments(const ElfFile &file, JsonWriter &json)
{
    json.beginArray("segments");
    for (const ElfSegment &segment : file.segments()) {
        const Elf32_Phdr &header = segment.header;
        json.beginObject();
        json.field("type", segmentTypeName(header.p_type));
        json.addressField("offset", header.p_offset);
        json.addressField("virtAddr", header.p_vaddr);
        json.addressField("physAddr", header.p_paddr);
        json.field("fileSiz", header.p_filesz);
        json.field("memSiz", header.p_memsz);
        json.addressField("flg", header.p_flags);
        json.field("align", header.p_align);
        json.end();
    }
    json.end();
}

void writeSections(const ElfFile &file, JsonWriter &json)
{
    json.beginArray("sections");
    for (const auto &section : file.sections()) {
        const Elf32_Shdr &header = section->header();
        json.beginObject();
        json.field("nr", section->index());
        json.field("name", section->name());
        json.field("type", sectionTypeName(header.sh_type));
        json.addressField("addr", header.sh_addr);
        json.addressField("offset", header.sh_offset);
        json.field("size", header.sh_size);
        json.field("es", header.sh_entsize);
        json.addressField("flg", header.sh_flags);
        json.field("lk", header.sh_link);
        json.field("inf", header.sh_info);
        json.field("al", header.sh_addralign);
        json.end();
    }
    json.end();
}

void writeHeader(const ElfFile &file, JsonWriter &json)
{
    const Elf32_Ehdr &header = file.header();
    json.beginObject("header");
    json.field("class", QLatin1StringView(elfClassName(header.e_ident[EI_CLASS])));
    json.field("data", QLatin1StringView(elfDataName(header.e_ident[EI_DATA])));
    json.field("osAbi", int(header.e_ident[EI_OSABI]));
    json.field("abiVersion", int(header.e_ident[EI_ABIVERSION]));
    json.field("type", int(header.e_type));
    json.field("machine", int(header.e_machine));
    json.addressField("entry", header.e_entry);
    json.addressField("phoff", header.e_phoff);
    json.addressField("shoff", header.e_shoff);
    json.addressField("flags", header.e_flags);
    json.field("phnum", int(header.e_phnum));
    json.field("shnum", file.sectionCount());
    json.field("shstrndx", int(header.e_shstrndx));
    json.end();
}

// What vnDump elf can show: the option, the text lines and the entry of the JSON document.
struct Table
{
    const char *option;
    bool isDefault;
    void (*list)(const ElfFile &, QStringList &); // null: symbolLines()
    void (*write)(const ElfFile &, JsonWriter &);
};

constexpr Table tables[] = {
    {"header", true, listElfHeader, writeHeader},
    {"segments", true, listProgramHeaders, writeSegments},
    {"sections", true, listSectionHeaders, writeSections},
    {"symbols", false, nullptr, writeSymbols},
};

} // namespace

QByteArray symbolLines(const ElfFile &file)
{
    // Most symbols of a file lie in few sections: their names are converted once.
    std::vector<QByteArray> sectionNames;
    for (const auto &section : file.sections())
        sectionNames.push_back(section->name().toUtf8());
    QByteArray text = "Symbols:\n   Num Value      Size       Type    Bind   Section          Name\n";
    text.reserve(file.symbolCount() * 80 + text.size());
    for (quint32 i = 0; i < quint32(file.symbolCount()); ++i) {
        const ElfSymbol *symbol = file.symbolAtIndex(i);
        char number[16];
        const int length = std::snprintf(number, sizeof number, "%6u ", i);
        text.append(number, length);
        appendAddress(text, symbol->value());
        appendAddress(text, symbol->size());
        appendColumn(text, symbolTypes[symbol->type()], 7);
        appendColumn(text, symbolBindings[symbol->binding()], 6);
        const quint16 section = symbol->sectionIndex();
        const bool isPlain = section != SHN_UNDEF && section < sectionNames.size();
        appendColumn(text, isPlain ? sectionNames[section] : sectionText(file, *symbol), 16);
        text.append(file.demangles() ? symbol->name().toUtf8() : symbol->rawName());
        text.append('\n');
    }
    return text;
}

int dumpElf(const CommandArguments &arguments)
{
    ElfFile file(arguments.has("demangle"));
    file.load(arguments.positional().first());
    const bool isAnyAsked =
        std::ranges::any_of(tables, [&](const Table &table) { return arguments.has(table.option); });
    JsonWriter json;
    json.beginObject();
    bool isFirst = true;
    for (const Table &table : tables) {
        if (!arguments.has("all") && !(isAnyAsked ? arguments.has(table.option) : table.isDefault))
            continue;
        if (arguments.has("json")) {
            table.write(file, json);
            continue;
        }
        if (!std::exchange(isFirst, false))
            printOut("\n");
        if (!table.list) {
            printOut(symbolLines(file));
            continue;
        }
        QStringList lines;
        table.list(file, lines);
        printOut(lines.join(u'\n') + u'\n');
    }
    json.end();
    if (arguments.has("json"))
        printOut(json.text());
    return 0;
}
