#include "debug/values/DisplayTree.h"
#include "debug/values/ElfImageEvaluator.h"
#include "xml/tree/XMLDocument.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

// How the types of the seeds' program are shown.
const char descriptions[] = R"xml(<TypeDescriptions>
  <List Name="List" Length="(*($(T)*)HEAD).count" Head="(*($(T)*)HEAD).first" Data="(*($(T.first.T0)*)CURRENT).value"
        Next="(*($(T.first)*)&amp;CURRENT).next"/>
  <List Name="Chain" Condition="CURRENT != HEAD" Head="(*($(T)*)HEAD).next" Data="*($(T0)*)(CURRENT + 4)"
        Next="*(unsigned int*)CURRENT"/>
  <RBTree Name="Tree" Length="(*($(T)*)HEAD).count" Head="(*($(T)*)HEAD).leftmost" Data="(*(TreeNode*)CURRENT).value"
        Left="(*(TreeNode*)CURRENT).left" Right="(*(TreeNode*)CURRENT).right" Parent="(*(TreeNode*)CURRENT).parent"/>
  <Deque Name="Queue" Length="(*($(T)*)HEAD).count" Head="(*($(T)*)HEAD).start" ChunkSize="8"
        ChunkMap="(*($(T)*)HEAD).map" ChunkData="*(unsigned int*)CURRENT" ChunkNext="CURRENT + 4"
        Data="*(int*)CURRENT" Next="CURRENT + 4"/>
  <String Name="Text" Data="(*($(T)*)HEAD).data" Length="(*($(T)*)HEAD).length"/>
  <Tuple Name="Pair" first="(*($(T)*)HEAD).a" second="(*($(T)*)HEAD).b"/>
  <Expr Name="Box" Expr="(*($(T)*)HEAD).inner"/>
</TypeDescriptions>)xml";

class CountingRows : public VariableListBuilder
{
public:
    Mode pointerMode(const QString &, const QString &typeName, quint64 pointer, quint32 *count) override
    {
        *count = 2;
        return typeName.endsWith(u"char") ? Text : pointer & 4 ? Follow : pointer & 8 ? Elements : Plain;
    }
    Mode arrayMode(const QString &, const QString &typeName, quint32 *) override
    {
        return typeName.startsWith(u"char") ? Text : Elements;
    }
    void addValue(const QString &, const QString &, const ExpressionValue &, const QString &, const QString &) override
    {}
    Token beginStruct(const QString &, const QString &, const ExpressionValue &, const QString &,
                      const QString &) override
    {
        return 0;
    }
    void endStruct(Token) override {}
    Token beginArray(const QString &, const QString &, const ExpressionValue &, const QString &,
                     const QString &) override
    {
        return 0;
    }
    void endArray(Token) override {}
    bool showVirtualFunctions(const QString &) override { return true; }
};

void show(ElfImageEvaluator &evaluator, const QString &expression)
{
    CountingRows rows;
    DisplayTree tree(evaluator, rows);
    tree.setMaximumRows(2000);
    try {
        tree.show(expression, expression, evaluator.evaluate(expression));
    } catch (const HException &) {
    }
}

} // namespace

// The input: the length of a text in 2 bytes, a text of expressions, a line each, and an ELF file over whose variables
// they are evaluated.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int descriptor = memfd_create("image", 0);
    static const QString path = QStringLiteral("/proc/self/fd/%1").arg(descriptor);
    static XMLDocument document;
    if (!document.root())
        document.parse(descriptions);

    ByteCursor input({data, size}, false);
    const auto text = input.readBytes(input.readU16());
    const auto image = input.readBytes(quint64(input.remaining()));
    if (input.failed() || ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, image.data(), image.size(), 0) != ssize_t(image.size()))
        return 0;
    ElfDwarfFile file(path);
    try {
        file.load();
    } catch (const HException &) {
        return 0;
    }
    ElfImageEvaluator evaluator(file);
    evaluator.setTypeDescriptions(document.root());
    const QString expressions = QString::fromUtf8(reinterpret_cast<const char *>(text.data()), qsizetype(text.size()));
    for (const QString &expression :
         expressions.split(u'\n').first(std::min<qsizetype>(expressions.count(u'\n') + 1, 8)))
        show(evaluator, expression);
    int entriesLeft = 200;
    for (DwarfCompilationUnit &unit : file.dwarf().units()) {
        for (const auto &entry : unit.namedEntries()) {
            if (--entriesLeft < 0)
                return 0;
            if (entry.tag() == DW_TAG_subprogram)
                evaluator.setOverridePc(entry.lowPc() + 4);
            evaluator.typeOfText(evaluator.textOfType(entry));
            evaluator.membersOf(entry);
            show(evaluator, entry.name());
        }
    }
    return 0;
}
