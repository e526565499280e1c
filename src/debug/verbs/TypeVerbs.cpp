#include "debug/verbs/TypeVerbs.h"

#include "debug/dwarf/DwarfOperations.h"
#include "debug/values/DwarfTypes.h"
#include "debug/values/VariableScope.h"
#include "debug/verbs/ReportingFile.h"
#include "debug/verbs/Results.h"

using namespace Qt::StringLiterals;

namespace {

// type

const char *kindOf(quint32 tag)
{
    switch (tag) {
    case DW_TAG_structure_type: return "struct";
    case DW_TAG_class_type: return "class";
    case DW_TAG_union_type: return "union";
    case DW_TAG_enumeration_type: return "enum";
    case DW_TAG_base_type: return "base";
    case DW_TAG_pointer_type: return "pointer";
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type: return "reference";
    case DW_TAG_array_type: return "array";
    case DW_TAG_subroutine_type: return "function";
    }
    return "typedef"; // of something else
}

std::vector<std::optional<quint64>> dimensionsOf(DwarfTypes &types, const TypeMember &member)
{
    const auto type = types.stripType(member.type);
    return DwarfTypes::isArray(type) ? types.dimensions(type) : std::vector<std::optional<quint64>>();
}

void writeMembers(JsonWriter &json, DwarfTypes &types, const std::vector<TypeMember> &members)
{
    json.beginArray("members");
    for (const TypeMember &member : members) {
        json.beginObject();
        json.field("name", member.name);
        if (member.isBase) {
            json.field("base", true);
            json.field("virtual", member.isVirtual);
        }
        json.field("type", types.typeName(member.type));
        if (member.isStatic) {
            json.field("static", true);
            json.end();
            continue;
        }
        if (member.offset)
            json.field("offset", *member.offset);
        else
            json.nullField("offset");
        if (member.isBitField()) {
            json.field("bitOffset", *member.bitOffset);
            json.field("bitSize", member.bitSize);
        }
        json.field("size", member.size);
        if (const auto dimensions = dimensionsOf(types, member); !dimensions.empty()) {
            json.beginArray("dimensions");
            for (const auto &count : dimensions) {
                if (count)
                    json.value(qint64(*count));
                else
                    json.nullField(nullptr);
            }
            json.end();
        }
        if (!member.members.empty())
            writeMembers(json, types, member.members);
        json.end();
    }
    json.end();
}

void writeEnumerators(JsonWriter &json, const std::vector<TypeEnumerator> &enumerators)
{
    json.beginArray("enumerators");
    for (const TypeEnumerator &enumerator : enumerators) {
        json.beginObject();
        json.field("name", enumerator.name);
        if (enumerator.isUnsigned)
            json.field("value", quint64(enumerator.value));
        else
            json.field("value", enumerator.value);
        json.end();
    }
    json.end();
}

// Offset, size and declaration of each member; a bit field's offset is bytes:bits and its size :bits.
void listMembers(Results &results, DwarfTypes &types, const std::vector<TypeMember> &members, int depth)
{
    for (const TypeMember &member : members) {
        QString offset = member.offset ? QString::number(*member.offset) : u"-"_s;
        QString size = member.isStatic ? u"-"_s : QString::number(member.size);
        if (member.isBitField()) {
            offset += u':' + QString::number(*member.bitOffset);
            size = u':' + QString::number(member.bitSize);
        }
        QString text = types.typeName(member.type);
        if (const auto dimensions = dimensionsOf(types, member); !dimensions.empty()) {
            if (text.endsWith(u"[]"_s))
                text.chop(2);
            text += u' ' + member.name;
            for (const auto &count : dimensions)
                text += u'[' + (count ? QString::number(*count) : QString()) + u']';
        } else if (!member.isBase && !member.name.isEmpty()) {
            text += u' ' + member.name;
        }
        if (member.isBase)
            text += member.isVirtual ? u" (virtual base)"_s : u" (base)"_s;
        if (member.isStatic)
            text += u" (static)"_s;
        results.line(u"%1 %2  %3%4"_s.arg(offset, 8).arg(size, 6).arg(QString(2 * depth, u' '), text));
        listMembers(results, types, member.members, depth + 1);
    }
}

void writeType(Results &results, DwarfFile &file, const QString &query)
{
    DwarfTypes types(file);
    const DwarfDebuggingInformationEntry named = types.typeNamed(query);
    const DwarfDebuggingInformationEntry type = named ? types.stripType(named) : named;
    JsonWriter &json = results.json;
    if (!type) {
        results.notFound();
        results.line(query + u" ??"_s);
        if (results.isJson()) {
            json.beginObject();
            json.field("query", query);
            for (const char *key : {"name", "kind", "size"})
                json.nullField(key);
            writeMembers(json, types, {});
            writeEnumerators(json, {});
            json.end();
        }
        return;
    }
    // A type without a name goes by that of its typedef.
    const QString name = type.name().isEmpty() ? named.name() : type.name();
    const QString kind = QString::fromLatin1(kindOf(type.tag()));
    const quint32 size = types.sizeOf(type);
    const auto members = types.members(type);
    const auto enumerators = types.enumerators(type);
    if (!results.isJson()) {
        results.line(u"%1 %2, %3 %4"_s.arg(kind, name, QString::number(size), size == 1 ? u"byte"_s : u"bytes"_s));
        listMembers(results, types, members, 0);
        for (const TypeEnumerator &enumerator : enumerators)
            results.line(u"%1  %2"_s
                             .arg(enumerator.isUnsigned ? QString::number(quint64(enumerator.value))
                                                        : QString::number(enumerator.value),
                                  8)
                             .arg(enumerator.name));
        return;
    }
    json.beginObject();
    json.field("query", query);
    json.field("name", name);
    json.field("kind", kind);
    json.field("size", size);
    writeMembers(json, types, members);
    writeEnumerators(json, enumerators);
    json.end();
}

// variables

void writeVariables(Results &results, DwarfTypes &types, const char *title,
                    const std::vector<DwarfDebuggingInformationEntry> &variables, quint32 address)
{
    JsonWriter &json = results.json;
    if (results.isJson())
        json.beginArray(title);
    else if (!variables.empty())
        results.line(QString::fromLatin1(title) + u':');
    for (const auto &variable : variables) {
        const auto location = VariableLocation::of(variable, address);
        const auto type = variable.target(DW_AT_type);
        const QString kind = QString::fromLatin1(variableLocationName(location.kind));
        const ByteCursor program(location.expression, variable.unit()->file().bigEndian());
        const QString expression = QString::fromLatin1(dwarfExpressionText(program, variable.unit()->format()));
        if (!results.isJson()) {
            results.line(u"    %1 %2, %3 bytes, %4%5"_s.arg(types.typeName(type), variable.name(),
                                                            QString::number(types.sizeOf(type)), kind,
                                                            expression.isEmpty() ? QString() : u": "_s + expression));
            continue;
        }
        json.beginObject();
        json.field("name", variable.name());
        json.field("type", types.typeName(type));
        json.field("size", types.sizeOf(type));
        json.field("kind", kind);
        if (location.kind == VariableLocation::Address)
            json.addressField("address", location.address);
        else
            json.nullField("address");
        const QByteArrayView bytes(location.expression.data(), qsizetype(location.expression.size()));
        textField(json, "bytes", QString::fromLatin1(bytes.toByteArray().toHex()));
        textField(json, "expression", expression);
        json.end();
    }
    if (results.isJson())
        json.end();
}

} // namespace

int dumpTypes(const CommandArguments &arguments)
{
    Results results(arguments);
    ReportingFile file(arguments.positional().first());
    for (const QString &name : arguments.positional().mid(1))
        writeType(results, file.dwarf(), name);
    return results.finish();
}

int dumpVariables(const CommandArguments &arguments)
{
    const quint32 address = parseAddress(arguments.positional().at(1));
    Results results(arguments, Results::OneObject);
    ReportingFile file(arguments.positional().first());
    DwarfTypes types(file.dwarf());
    const VariableScope scope = VariableScope::at(file.dwarf(), address);
    QString function = scope.function.name();
    if (const auto enclosing = scope.function.enclosingClass())
        function.prepend(enclosing.name() + u"::"_s);
    if (!scope.function)
        results.notFound();
    if (results.isJson()) {
        results.json.addressField("address", address);
        textField(results.json, "function", function);
    } else {
        results.line(addressText(address) + u' ' + (function.isEmpty() ? u"??"_s : function));
    }
    writeVariables(results, types, "parameters", scope.parameters, address);
    writeVariables(results, types, "locals", scope.locals, address);
    writeVariables(results, types, "globals", scope.globals, address);
    return results.finish();
}
