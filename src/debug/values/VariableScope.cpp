#include "debug/values/VariableScope.h"

#include "debug/values/DwarfLocationExpressionEvaluator.h"

namespace {

bool holds(DwarfDebuggingInformationEntry scope, quint32 address)
{
    return std::ranges::any_of(scope.ranges(), [&](const DwarfAddressRange &range) { return range.contains(address); });
}

void appendGlobals(std::vector<DwarfDebuggingInformationEntry> &globals, DwarfDebuggingInformationEntry unit)
{
    std::vector<DwarfDebuggingInformationEntry> open = {unit}; // namespaces within each other
    while (!open.empty()) {
        const auto parent = open.back();
        open.pop_back();
        for (auto child = parent.child(); child; child = child.sibling()) {
            if (child.tag() == DW_TAG_variable && !child.isDeclaration())
                globals.push_back(child);
            else if (child.tag() == DW_TAG_namespace)
                open.push_back(child);
        }
    }
}

// Knows the program's addresses and nothing else, and notes when an expression asks for more.
class FileAlone : public DwarfLocationExpressionEvaluator
{
public:
    FileAlone(quint32 loadOffset, quint32 pc) : m_loadOffset(loadOffset), m_pc(pc) {}

    bool needsMachine() const { return m_needsMachine; }

    quint32 programCounter() override { return m_pc; }
    quint32 mapAddress(quint32 address) override { return address + m_loadOffset; }
    quint32 readRegister(quint32) override { return unknown(); }
    quint64 entryRegister(quint32) override { return unknown(); }
    quint64 readSized(quint32, quint32) override { return unknown(); }
    quint32 threadLocalBase() override { return unknown(); }
    quint32 canonicalFrameAddress() override { return unknown(); }

private:
    quint32 unknown()
    {
        m_needsMachine = true;
        return 0;
    }

    quint32 m_loadOffset, m_pc;
    bool m_needsMachine = false;
};

} // namespace

VariableScope VariableScope::at(DwarfFile &file, quint32 address)
{
    VariableScope scope;
    scope.function = file.subprogramAt(address);
    DwarfCompilationUnit *unit = scope.function.unit();
    if (!unit) {
        const auto units = file.unitsAt(address);
        unit = units.empty() ? nullptr : units.front();
    }
    if (unit)
        appendGlobals(scope.globals, unit->tree());

    std::vector<std::vector<DwarfDebuggingInformationEntry>> blocks; // the outermost first
    for (const auto &block : blocksAt(scope.function, address - file.loadOffset())) {
        auto &variables = blocks.emplace_back();
        for (auto child = block.child(); child; child = child.sibling()) {
            if (child.tag() == DW_TAG_formal_parameter)
                (block == scope.function ? scope.parameters : variables).push_back(child);
            else if (child.tag() == DW_TAG_variable && !child.isDeclaration() && !child.nameBytes().isEmpty())
                variables.push_back(child); // without a name: what the compiler keeps an array's bound in
        }
    }
    for (auto variables = blocks.rbegin(); variables != blocks.rend(); ++variables)
        scope.locals.insert(scope.locals.end(), variables->begin(), variables->end());
    return scope;
}

std::vector<DwarfDebuggingInformationEntry> VariableScope::blocksAt(DwarfDebuggingInformationEntry function,
                                                                    quint32 address)
{
    std::vector<DwarfDebuggingInformationEntry> blocks;
    while (function) {
        blocks.push_back(function);
        DwarfDebuggingInformationEntry inner;
        for (auto child = function.child(); child && !inner; child = child.sibling()) {
            const bool isBlock = child.tag() == DW_TAG_lexical_block || child.tag() == DW_TAG_inlined_subroutine;
            if (isBlock && holds(child, address))
                inner = child;
        }
        function = inner;
    }
    return blocks;
}

VariableLocation VariableLocation::of(DwarfDebuggingInformationEntry variable, quint32 programCounter)
{
    VariableLocation location;
    const auto attribute = variable.attributeResolved(DW_AT_location);
    if (!attribute) {
        location.kind = variable.attributeResolved(DW_AT_const_value) ? Constant : None;
        return location;
    }
    FileAlone machine(variable.unit()->file().loadOffset(), programCounter);
    location.expression = machine.expressionOf(*attribute);
    const std::vector<DwarfStackValue> stack = machine.run(variable, location.expression);
    const auto isRegister = [](const DwarfStackValue &value) { return value.kind == DwarfStackValue::Register; };
    if (stack.size() > 1) {
        location.kind = std::ranges::all_of(stack, isRegister) ? Registers : Pieces;
    } else if (stack.size() == 1) {
        switch (stack[0].kind) {
        case DwarfStackValue::Plain:
            location.kind = machine.needsMachine() ? Memory : Address;
            location.address = machine.needsMachine() ? 0 : quint32(stack[0].value);
            break;
        case DwarfStackValue::Register: location.kind = Register; break;
        case DwarfStackValue::Value:
        case DwarfStackValue::Pointer: location.kind = Value; break;
        case DwarfStackValue::Missing: break;
        }
    }
    return location;
}

const char *variableLocationName(VariableLocation::Kind kind)
{
    switch (kind) {
    case VariableLocation::None: return "none";
    case VariableLocation::Address: return "address";
    case VariableLocation::Memory: return "memory";
    case VariableLocation::Register: return "register";
    case VariableLocation::Registers: return "registers";
    case VariableLocation::Pieces: return "pieces";
    case VariableLocation::Value: return "value";
    case VariableLocation::Constant: break;
    }
    return "constant";
}
