#include "xml/preprocessor/XMLPP2.h"

namespace {

// The files that can be included are the pieces of the input between NULs, named "1", "2" and so on.
class FuzzXMLPP2 : public XMLPP2
{
public:
    explicit FuzzXMLPP2(const QByteArray &input) : m_files(input.split('\0')) { setMaximumProduced(20'000); }
    bool parseInclude(const QString &path) override { return parse(m_files.value(path.toInt())); }

private:
    QByteArrayList m_files;
};

} // namespace

// The first piece is the document; a tab at its start leaves references unexpanded.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    FuzzXMLPP2 document(input);
    if (document.parseInclude(QString()) && document.root())
        document.processConditionals(document.root(), QString(), {{QString(u'A'), QString(u'1')}}, data[0] != '\t');
    document.text();
    return 0;
}
