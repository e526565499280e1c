#pragma once

#include "base/ByteImage.h"
#include "target/loadfile/LoadFileSection.h"

#include <QByteArray>
#include <QString>

// A file that is to be written into a target: sections with addresses, and an entry point when it names one.
// What a reader finds wrong it throws as HException from its constructor or from sections().
class LoadFileInterface
{
public:
    LoadFileInterface() = default;
    LoadFileInterface(const LoadFileInterface &) = delete;
    LoadFileInterface &operator=(const LoadFileInterface &) = delete;
    virtual ~LoadFileInterface() = default;

    virtual bool hasEntryPoint() const = 0;
    virtual void setEntryPoint(quint32 address) = 0;
    virtual quint32 entryPoint() const = 0;
    // True when the file fixes where its bytes go; else setLoadAddress() says it.
    virtual bool hasAddressInformation() const = 0;
    virtual void setLoadAddress(quint32) {}
    // Replaces the primary sections by one, "Contiguous section", with `fill` between them; where they overlap,
    // later ones count. Nothing changes when no section ends between the first and the last address. Throws
    // HException when the sections span more than maximumContiguousBytes.
    virtual void makeContiguous(quint8 fill);
    // By ascending start address.
    virtual void sortSections();
    virtual bool hasDebugInformation() const { return false; }
    // Fills the store; false when it can't.
    virtual bool readSections() = 0;

    // Reads the sections at the first call, unless loading is disabled. Throws "cannot read sections from load
    // file" when they can't be read.
    LoadFileSections &sections();

    bool loadEnabled() const { return m_loadEnabled; }
    void setLoadEnabled(bool enabled) { m_loadEnabled = enabled; }

    static constexpr quint64 maximumContiguousBytes = quint64(1) << 30;

protected:
    LoadFileSections m_sections;
    bool m_sectionsRead = false;

private:
    bool m_loadEnabled = true;
};

// A load file with room for an entry point.
class StandardLoadFile : public LoadFileInterface
{
public:
    bool hasEntryPoint() const override { return m_entryPoint.has_value(); }
    void setEntryPoint(quint32 address) override { m_entryPoint = address; }
    quint32 entryPoint() const override { return m_entryPoint.value_or(0); }

private:
    std::optional<quint32> m_entryPoint;
};

// A plain image. It has no address of its own: it lies at 0 until setLoadAddress().
class BinaryLoadFile : public StandardLoadFile
{
public:
    explicit BinaryLoadFile(const QString &path) : BinaryLoadFile(ByteImage::load(path)) {}
    explicit BinaryLoadFile(ByteImage image) : m_image(std::move(image)) {}

    bool hasAddressInformation() const override { return false; }
    void setLoadAddress(quint32 address) override;
    // One section, "data". Throws HException when the image passes the end of the address space.
    bool readSections() override;

private:
    ByteImage m_image;
    quint32 m_loadAddress = 0;
};

// The load files of one download.
class LoadFileList
{
public:
    struct Entry
    {
        LoadFileInterface *file;
        QByteArray name;
        std::unique_ptr<LoadFileInterface> owned; // the same file, when it goes with the list
    };

    void append(LoadFileInterface *file, const QByteArray &name) { m_entries.push_back({file, name, nullptr}); }
    void append(std::unique_ptr<LoadFileInterface> file, const QByteArray &name);

    // True when primary sections of one file lie upon those of another. Empty sections lie nowhere.
    bool overlap() const;
    // The sections of each file by address, then the files by the address of their first section.
    void sort();

    const std::vector<Entry> &entries() const { return m_entries; }

private:
    std::vector<Entry> m_entries;
};
