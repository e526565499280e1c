#include "driver/LtoResolver.h"

#include "support/ElfBuilder.h"

#include <map>
#include <random>
#include <set>

namespace {

// What an object defines and needs; the order is that of its symbol table.
struct ModelSymbol
{
    QByteArray name;
    bool isWeak, isDefined;
};
using ModelObject = QList<ModelSymbol>;

// The resolution written down once more, with plain lists, searches and recursion.
class NaiveModel
{
public:
    QList<QByteArray> irStrong, irWeak, irUndefined, elfStrong, elfWeak, elfUndefined;
    QList<QList<ModelObject>> archives;
    QList<std::map<QByteArray, int>> indexes;
    std::set<std::pair<int, int>> loaded;

    void collect(const ModelObject &object, QList<QByteArray> &undefined)
    {
        for (const ModelSymbol &symbol : object)
            (symbol.isWeak ? elfWeak : symbol.isDefined ? elfStrong : undefined).append(symbol.name);
    }
    bool pull(const QByteArray &name)
    {
        bool helped = false;
        for (int a = 0; a < archives.size(); ++a) {
            const auto entry = indexes[a].find(name);
            if (entry == indexes[a].end() || !loaded.insert({a, entry->second}).second)
                continue;
            QList<QByteArray> undefined;
            collect(archives[a][entry->second], undefined);
            for (const QByteArray &needed : undefined) {
                elfUndefined.append(needed);
                if (!irStrong.contains(needed))
                    pull(needed);
            }
            helped = true;
        }
        return helped;
    }
    QList<QByteArray> resolve()
    {
        for (;;) {
            QList<QByteArray> preserved;
            for (const QByteArray &name : elfUndefined)
                if (irStrong.contains(name) || (irWeak.contains(name) && !elfStrong.contains(name)))
                    preserved.append(name);
            for (const QByteArray &name : elfWeak)
                if (irStrong.contains(name) || irWeak.contains(name))
                    preserved.append(name);
            bool changed = false;
            for (const QByteArray &name : irUndefined) {
                if (elfStrong.contains(name) || elfWeak.contains(name))
                    preserved.append(name);
                else if (pull(name))
                    changed = true;
            }
            if (!changed)
                return preserved;
        }
    }
};

QByteArray elfImage(const ModelObject &object)
{
    ElfBuilder elf;
    elf.sections = {{".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0, "\x70\x47"}};
    for (const ModelSymbol &symbol : object)
        elf.symbols.append({symbol.name, 0, quint8(ELF32_ST_INFO(symbol.isWeak ? STB_WEAK : STB_GLOBAL, STT_FUNC)),
                            quint16(symbol.isDefined ? 1 : 0)});
    return elf.build();
}

TEST(LtoResolver, AgreesWithANaiveModelOnRandomInputs)
{
    std::mt19937 random(3);
    const auto below = [&](int limit) { return int(random() % unsigned(limit)); };
    for (int round = 0; round < 400; ++round) {
        const int nameCount = 3 + below(25);
        const auto name = [&] { return "s" + QByteArray::number(below(nameCount)); };
        const auto object = [&] {
            ModelObject symbols;
            for (int i = below(6); i > 0; --i)
                symbols.append({name(), below(4) == 0, below(2) == 0});
            return symbols;
        };
        NaiveModel model;
        LtoResolver resolver;
        std::vector<QByteArray> names;
        names.reserve(200); // views of them are kept
        const auto addBitcode = [&](QList<QByteArray> &list, LtoSymbolTable &table) {
            for (int i = below(8); i > 0; --i) {
                list.append(name());
                table.append({names.emplace_back(list.last()), "bc"});
            }
        };
        addBitcode(model.irStrong, resolver.irStrong);
        addBitcode(model.irWeak, resolver.irWeak);
        addBitcode(model.irUndefined, resolver.irUndefined);
        std::vector<std::unique_ptr<ElfFile>> objects;
        for (int i = below(4); i > 0; --i) {
            const ModelObject symbols = object();
            model.collect(symbols, model.elfUndefined);
            objects.push_back(std::make_unique<ElfFile>());
            objects.back()->parse(ByteImage::fromBytes(elfImage(symbols)));
            resolver.addObject(*objects.back(), "object");
        }
        for (int a = below(4); a > 0; --a) {
            QList<ModelObject> members;
            std::map<QByteArray, int> index;
            QList<ArchiveMember> files;
            for (int m = below(6); m > 0; --m) {
                members.append(object());
                QList<QByteArray> indexed;
                for (const ModelSymbol &symbol : members.last())
                    if (symbol.isDefined && !indexed.contains(symbol.name)) {
                        indexed.append(symbol.name);
                        index.try_emplace(symbol.name, int(members.size()) - 1);
                    }
                files.append({"m.o", elfImage(members.last()), indexed});
            }
            model.archives.append(members);
            model.indexes.append(index);
            auto archive = std::make_unique<ElfArchive>();
            archive->parse(ByteImage::fromBytes(buildArchive(files)));
            resolver.addArchive(std::move(archive));
        }
        QList<QByteArray> preserved;
        for (const QByteArrayView view : resolver.resolve())
            preserved.append(view.toByteArray());
        ASSERT_EQ(preserved, model.resolve()) << "round " << round;
    }
}

// Each member needs the next one: a chain longer than any stack is deep.
TEST(LtoResolver, FollowsLongChainsOfMembers)
{
    constexpr int length = 20000;
    QList<ArchiveMember> members;
    for (int i = 0; i < length; ++i) {
        const QByteArray here = "s" + QByteArray::number(i), next = "s" + QByteArray::number(i + 1);
        members.append({"m.o", elfImage({{here, false, true}, {next, false, false}}), {here}});
    }
    LtoResolver resolver;
    auto archive = std::make_unique<ElfArchive>();
    archive->parse(ByteImage::fromBytes(buildArchive(members)));
    resolver.addArchive(std::move(archive));
    resolver.irUndefined.append({"s0", "bc"});
    resolver.irStrong.append({"s20000", "bc"});
    EXPECT_EQ(resolver.resolve(), (std::vector<QByteArrayView>{"s20000", "s0"}));
}

} // namespace
