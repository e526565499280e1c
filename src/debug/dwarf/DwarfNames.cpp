#include "debug/dwarf/DwarfNames.h"

#include <algorithm>
#include <cstring>

namespace {

struct NameRow
{
    const char *kind;
    quint32 number;
    const char *name;
};

constexpr NameRow nameRows[] = {
#define DWARF_NAME(kind, name, value) {#kind, value, "DW_" #kind "_" #name},
#include "debug/dwarf/DwarfNames.def"
#undef DWARF_NAME
};

} // namespace

const char *dwarfName(const char *kind, quint32 number)
{
    const auto row = std::ranges::find_if(nameRows, [&](const NameRow &candidate) {
        return candidate.number == number && std::strcmp(candidate.kind, kind) == 0;
    });
    return row == std::end(nameRows) ? nullptr : row->name;
}
