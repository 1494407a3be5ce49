#include "instrument/GpibControllerEmulation.h"

#include <QList>

namespace {
constexpr char Escape = 27;
constexpr char End = char(0xC0);
const QByteArray NothingToSay = QByteArray(2, End); // an empty frame
constexpr int HighestAddress = 30;
} // namespace

GpibControllerEmulation::GpibControllerEmulation(int instrumentAddress, EndMark endMark, QObject *parent)
    : QObject(parent), m_instrumentAddress(instrumentAddress), m_endMark(endMark)
{
}

void GpibControllerEmulation::receive(const QByteArray &bytes)
{
    for (char c : bytes) {
        if (m_escaped) {
            m_escaped = false;
            m_line.append(c);
        } else if (c == Escape) {
            m_escaped = true;
            m_lineHasEscapes = true;
        } else if (c == '\n' || c == '\r') {
            endOfLine();
        } else {
            m_line.append(c);
        }
    }
}

void GpibControllerEmulation::endOfLine()
{
    const QByteArray line = m_line;
    const bool isCommand = !m_lineHasEscapes && line.startsWith("++");
    m_line.clear();
    m_lineHasEscapes = false;
    if (line.isEmpty())
        return; // the LF after a CR
    if (isCommand)
        command(line.mid(2).trimmed());
    else if (m_address == m_instrumentAddress)
        emit toInstrument(line);
    // else: no listener at that address; the bytes are gone
}

void GpibControllerEmulation::command(const QByteArray &line)
{
    const QList<QByteArray> words = line.split(' ');
    const QByteArray name = words.value(0);
    const QByteArray argument = words.value(1);
    if (name == "addr") {
        if (argument.isEmpty()) {
            emit toHost(QByteArray::number(m_address) + "\r\n");
            return;
        }
        const int address = argument.toInt();
        if (address >= 0 && address <= HighestAddress)
            m_address = address;
    } else if (name == "read") {
        talk();
    } else if (name == "ver") {
        emit toHost("Varnolt emulated GPIB controller version 1.0\r\n");
    } else if (m_endMark == EndMark::OnRequest && name == "eot_enable") {
        m_endEnabled = argument == "1";
    } else if (m_endMark == EndMark::OnRequest && name == "eot_char") {
        m_endCharacter = char(argument.toInt());
    }
    // ++mode, ++auto, ++eoi, ++eos and ++read_tmo_ms only set what this emulation does anyway
    // (a read from an address without a talker returns nothing at once).
}

void GpibControllerEmulation::talk()
{
    if (m_address != m_instrumentAddress)
        return; // no talker: a real controller gives up after the read timeout and sends nothing
    QByteArray message = m_talkerOutput.isEmpty() ? NothingToSay : m_talkerOutput;
    m_talkerOutput.clear();
    if (m_endEnabled)
        message.append(m_endCharacter);
    emit toHost(message);
}

void GpibControllerEmulation::fromInstrument(const QByteArray &bytes)
{
    m_talkerOutput += bytes;
}
