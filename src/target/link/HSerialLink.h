#pragma once

#include "base/FileDescriptor.h"
#include "target/link/HDataLink.h"

#include <QString>

struct termios;

// A serial port. Reads and writes end early, with the count of bytes moved, when the port fails or the read
// time-out (1000 ms at first, for both directions) is over.
class HSerialLink : public HDataLink
{
public:
    enum class Parity { none, even, odd };
    enum class FlowControl { none, software, hardware };

    struct Settings
    {
        quint32 baudRate = 9600;
        quint32 byteSize = 8; // 5, 6 or 7; anything else stands for 8
        Parity parity = Parity::none;
        bool twoStopBits = false;
        FlowControl flowControl = FlowControl::none;
    };

    // Throws HException: "open error TEXT(NUMBER)" with the system's message, and in the same way "tcgetattr error",
    // "tcflush error" and "tcsetattr error".
    HSerialLink(const QString &device, const Settings &settings);

    quint32 read(quint8 *buffer, quint32 count) override;
    quint32 write(const quint8 *buffer, quint32 count) override;
    void flush() override; // input and output

    // Standard rates from 50 to 4000000; any other number is taken as the platform's own code of a speed. Throws
    // as the constructor does.
    void setBaudRate(quint32 baudRate);
    // Drops input until nothing has come for 250 ms. Gives the number of bytes dropped.
    quint32 drain();

    // Turns the attributes that a port has into those that `settings` ask for. False when the speed is unknown.
    static bool applySettings(termios &attributes, const Settings &settings);

private:
    template <typename Transfer>
    quint32 move(quint32 count, short events, Transfer transfer);
    void setAttributes(const termios &attributes);

    FileDescriptor m_port;
};
