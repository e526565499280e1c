#pragma once

#include "debug/dwarf/DwarfAbbreviations.h"

#include <QByteArray>

// A location expression as text, its operations joined by ", ": "DW_OP_fbreg: -20", "DW_OP_reg3, DW_OP_piece: 4".
// An unknown operation stands as its number and ends the text, for nobody knows its operands; an operation that is
// cut short ends it with "...".
QByteArray dwarfExpressionText(ByteCursor expression, DwarfFormat format);
