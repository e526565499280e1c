#pragma once

#include <QLoggingCategory>

// "debug/dwarf": what is read when, and the steps of the frame interpreter.
Q_DECLARE_LOGGING_CATEGORY(dwarfTrace)
