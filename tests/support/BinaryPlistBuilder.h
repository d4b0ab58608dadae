#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <utility>
#include <vector>

namespace corvina::test {

// Writes binary property lists object by object, so that tests can make the lists no ordinary
// writer makes: one object referenced millions of times, chains of shared containers, lists of
// exactly so many objects. Objects are numbered in the order they are added; containers name
// their elements by those numbers, and any object may be referenced any number of times.
class BinaryPlistBuilder {
public:
    // `refSize`: bytes of each reference inside a container (1 to 4); it must hold the largest
    // object number used.
    explicit BinaryPlistBuilder(int refSize = 4);

    quint64 text(const QByteArray& ascii); // an ASCII text
    quint64 data(const QByteArray& bytes);
    quint64 integer(qint64 value);
    quint64 boolean(bool value);
    quint64 array(const std::vector<quint64>& elements);
    // an array holding `count` references to one object
    quint64 repeated(quint64 element, quint64 count);
    quint64 dictionary(const std::vector<std::pair<quint64, quint64>>& keysAndValues);
    // raw bytes of one encoded object, for objects the helpers above do not make
    quint64 raw(const QByteArray& encoded);

    quint64 objectCount() const { return m_offsets.size(); }
    // The whole list with `top` as its top object.
    QByteArray finish(quint64 top) const;

private:
    QByteArray header(unsigned type, quint64 length) const;
    void appendRef(QByteArray& out, quint64 ref) const;

    int m_refSize;
    QByteArray m_objects;
    std::vector<quint64> m_offsets;
};

} // namespace corvina::test
