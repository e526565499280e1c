#pragma once

// Where text goes: a sink of characters, and the formatting on top of it.
class CharacterSink
{
public:
    virtual void put(char c) = 0;

protected:
    ~CharacterSink() = default; // sinks live for ever; nobody deletes one
};

// UART 0 of the LM3S6965.
class SerialPort final : public CharacterSink
{
public:
    SerialPort();
    void put(char c) override;
};

class Console
{
public:
    explicit Console(CharacterSink &sink) : m_sink(sink) {}

    Console &operator<<(const char *text);
    Console &operator<<(int number);

private:
    CharacterSink &m_sink;
};
