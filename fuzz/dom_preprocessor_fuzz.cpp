#include "base/Log.h"
#include "xml/preprocessor/XmlPP.h"

namespace {

// The files that can be included are the pieces of the input between NULs, named "1", "2" and so on.
class FuzzXmlPP : public XmlPP
{
public:
    explicit FuzzXmlPP(const QByteArray &input) : XmlPP({{QString(u'A'), QString(u'1')}}), m_files(input.split('\0')) {}

protected:
    std::optional<QByteArray> readFile(const QString &path) override
    {
        const int number = path.toInt();
        return number < m_files.size() ? std::optional(m_files.value(number)) : std::nullopt;
    }

private:
    QByteArrayList m_files;
};

} // namespace

// The first piece is the document; a tab at its start leaves references unexpanded.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    setLogMask(0);
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    FuzzXmlPP preprocessor(input);
    preprocessor.load(QString(), QString(), size == 0 || data[0] != '\t');
    preprocessor.document().toString();
    return 0;
}
