#include "BinaryPlistBuilder.h"

#include <gtest/gtest.h>

namespace corvina::test {

namespace {

void appendBigEndian(QByteArray& out, quint64 value, int width) {
    for (int i = width - 1; i >= 0; --i) {
        out.append(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

} // namespace

BinaryPlistBuilder::BinaryPlistBuilder(int refSize) : m_refSize(refSize), m_objects("bplist00") {}

QByteArray BinaryPlistBuilder::header(unsigned type, quint64 length) const {
    QByteArray out;
    if (length < 15) {
        out.append(static_cast<char>((type << 4) | length));
    } else {
        out.append(static_cast<char>((type << 4) | 0x0F));
        out.append(static_cast<char>(0x13)); // an 8-byte integer follows
        appendBigEndian(out, length, 8);
    }
    return out;
}

void BinaryPlistBuilder::appendRef(QByteArray& out, quint64 ref) const {
    EXPECT_LT(ref, quint64(1) << (8 * m_refSize)) << "reference too wide for the builder's refSize";
    appendBigEndian(out, ref, m_refSize);
}

quint64 BinaryPlistBuilder::raw(const QByteArray& encoded) {
    m_offsets.push_back(static_cast<quint64>(m_objects.size()));
    m_objects += encoded;
    return m_offsets.size() - 1;
}

quint64 BinaryPlistBuilder::text(const QByteArray& ascii) {
    return raw(header(0x5, static_cast<quint64>(ascii.size())) + ascii);
}

quint64 BinaryPlistBuilder::data(const QByteArray& bytes) {
    return raw(header(0x4, static_cast<quint64>(bytes.size())) + bytes);
}

quint64 BinaryPlistBuilder::integer(qint64 value) {
    QByteArray out(1, static_cast<char>(0x13));
    appendBigEndian(out, static_cast<quint64>(value), 8);
    return raw(out);
}

quint64 BinaryPlistBuilder::boolean(bool value) {
    return raw(QByteArray(1, static_cast<char>(value ? 0x09 : 0x08)));
}

quint64 BinaryPlistBuilder::array(const std::vector<quint64>& elements) {
    QByteArray out = header(0xA, elements.size());
    out.reserve(out.size() + static_cast<qsizetype>(elements.size()) * m_refSize);
    for (const quint64 element : elements) {
        appendRef(out, element);
    }
    return raw(out);
}

quint64 BinaryPlistBuilder::repeated(quint64 element, quint64 count) {
    QByteArray out = header(0xA, count);
    QByteArray ref;
    appendRef(ref, element);
    out += ref.repeated(static_cast<qsizetype>(count));
    return raw(out);
}

quint64 BinaryPlistBuilder::dictionary(const std::vector<std::pair<quint64, quint64>>& keysAndValues) {
    QByteArray out = header(0xD, keysAndValues.size());
    for (const auto& [key, value] : keysAndValues) {
        appendRef(out, key);
    }
    for (const auto& [key, value] : keysAndValues) {
        appendRef(out, value);
    }
    return raw(out);
}

QByteArray BinaryPlistBuilder::finish(quint64 top) const {
    QByteArray out = m_objects;
    const quint64 tableOffset = static_cast<quint64>(out.size());
    int offsetSize = 1;
    while (offsetSize < 8 && tableOffset >= (quint64(1) << (8 * offsetSize))) {
        ++offsetSize;
    }
    out.reserve(out.size() + static_cast<qsizetype>(m_offsets.size()) * offsetSize + 32);
    for (const quint64 offset : m_offsets) {
        appendBigEndian(out, offset, offsetSize);
    }
    out.append(QByteArray(6, '\0'));
    out.append(static_cast<char>(offsetSize));
    out.append(static_cast<char>(m_refSize));
    appendBigEndian(out, m_offsets.size(), 8);
    appendBigEndian(out, top, 8);
    appendBigEndian(out, tableOffset, 8);
    return out;
}

} // namespace corvina::test
