#pragma once

#include <QtGlobal>

// The numbers of the format: DW_TAG_..., DW_AT_..., DW_FORM_..., DW_ATE_..., DW_LANG_..., DW_UT_...
enum DwarfNumber : quint32 {
#define DWARF_NAME(kind, name, value) DW_##kind##_##name = value,
#include "debug/dwarf/DwarfNames.def"
#undef DWARF_NAME
};

// "DW_TAG_member" for ("TAG", 0x0d); null for a number without a name.
const char *dwarfName(const char *kind, quint32 number);
