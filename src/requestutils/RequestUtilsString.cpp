// Operations on URL strings: fragment, query and path pieces; base64 text.
#include "ParameterValues.h"
#include "RequestUtils.h"

#include <QDir>
#include <array>

namespace corvina::RequestUtils {

namespace {

using detail::isList;
using detail::listOf;

// The receiver without fragment and query, and a way to put them back after changing it.
struct PathParts {
    QString path;
    QString query;
    QString fragment;

    explicit PathParts(const QString& receiver) {
        const QString withoutFragment = stringByDeletingURLFragment(receiver);
        path = stringByDeletingURLQuery(withoutFragment);
        query = URLQuery(withoutFragment);
        fragment = URLFragment(receiver);
    }
    QString with(const QString& newPath) const {
        return stringByAppendingURLFragment(stringByAppendingURLQuery(newPath, query), fragment);
    }
};

// The extension of a last path component: after its last ".", when something stands before it.
qsizetype extensionDot(const QString& component) {
    const qsizetype dot = component.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? dot : -1;
}

} // namespace

QString URLFragment(const QString& receiver) {
    const qsizetype hash = receiver.indexOf(QLatin1Char('#'));
    return hash < 0 ? QString() : receiver.mid(hash + 1);
}

QString stringByDeletingURLFragment(const QString& receiver) {
    const qsizetype hash = receiver.indexOf(QLatin1Char('#'));
    return hash < 0 ? receiver : receiver.left(hash);
}

QString stringByAppendingURLFragment(const QString& receiver, const QString& fragment) {
    if (fragment.isNull()) {
        return receiver;
    }
    if (!receiver.contains(QLatin1Char('#'))) {
        return receiver + QLatin1Char('#') + fragment;
    }
    // deliberately straight onto the end: the existing fragment grows
    return receiver + fragment;
}

QString stringByDeletingURLQuery(const QString& receiver) {
    const Range range = rangeOfURLQuery(receiver);
    if (range.location == Range::NotFound) {
        return receiver;
    }
    return QString(receiver).remove(range.location, range.length);
}

QString stringByAppendingURLQuery(const QString& receiver, const QString& query) {
    if (query.isEmpty()) {
        return receiver;
    }
    QString out = stringByDeletingURLFragment(receiver);
    const QString fragment = URLFragment(receiver);
    const QString existing = URLQuery(out);
    if (existing.isNull()) {
        out += QLatin1Char('?') + query;
    } else if (!existing.isEmpty()) {
        out += QLatin1Char('&') + query;
    } else {
        out += query; // the text ends in "?"
    }
    if (!fragment.isEmpty()) {
        out += QLatin1Char('#') + fragment;
    }
    return out;
}

QString stringByReplacingURLQueryWithQuery(const QString& receiver, const QString& query) {
    return stringByAppendingURLQuery(stringByDeletingURLQuery(receiver), query);
}

QString stringByMergingURLQuery(const QString& receiver, const QString& query, quint32 options) {
    quint32 mode = options & URLQueryRepeatMode;
    if (mode == 0) {
        mode = URLQueryKeepLast;
    }
    if (query.isEmpty()) {
        return receiver;
    }
    if (URLQuery(receiver).isEmpty()) {
        return stringByAppendingURLQuery(receiver, query);
    }
    Parameters merged = URLQueryParametersWithOptions(receiver, options);
    const Parameters added = URLQueryParametersWithOptions(query, options);
    for (auto it = added.cbegin(); it != added.cend(); ++it) {
        const QVariant& n = it.value();
        const auto found = merged.constFind(it.key());
        QVariant value;
        if (found != merged.cend() && isList(found.value())) {
            QStringList values = listOf(found.value());
            values << (isList(n) ? listOf(n) : QStringList{n.toString()});
            value = values;
        } else if (found != merged.cend()) {
            const QString o = found.value().toString();
            if (isList(n)) {
                value = QStringList{o} + listOf(n);
            } else if (mode == URLQueryKeepFirst) {
                value = o;
            } else if (mode == URLQueryCollectRepeats || mode == URLQueryCollectAll) {
                value = QStringList{o, n.toString()};
            } else {
                value = n;
            }
        } else {
            value = mode == URLQueryCollectAll && !isList(n) ? QVariant(QStringList{n.toString()}) : n;
        }
        merged.insert(it.key(), value);
    }
    const Range range = rangeOfURLQuery(receiver);
    const bool mark = receiver.at(range.location) == QLatin1Char('?');
    return receiver.left(range.location + (mark ? 1 : 0)) + URLQueryWithParameters(merged, options) +
           receiver.mid(range.location + range.length);
}

QString stringByAppendingURLPathComponent(const QString& receiver, const QString& component) {
    const PathParts parts(receiver);
    QString path = parts.path;
    const QString piece = component.startsWith(QLatin1Char('/')) ? component.mid(1) : component;
    if (!path.isEmpty() && !path.endsWith(QLatin1Char('/'))) {
        path += QLatin1Char('/');
    }
    return parts.with(path + piece);
}

QString stringByDeletingLastURLPathComponent(const QString& receiver) {
    const PathParts parts(receiver);
    const qsizetype slash = parts.path.lastIndexOf(QLatin1Char('/'));
    // a path ending in "/" keeps everything, and so does a path without "/": both by design
    return parts.with(slash < 0 ? parts.path : parts.path.left(slash + 1));
}

QString lastURLPathComponent(const QString& receiver) {
    const QString path = PathParts(receiver).path;
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? path : path.mid(slash + 1);
}

QString URLPathExtension(const QString& receiver) {
    const QString last = lastURLPathComponent(receiver);
    const qsizetype dot = extensionDot(last);
    return dot < 0 ? QString(QLatin1String("")) : last.mid(dot + 1);
}

QString stringByAppendingURLPathExtension(const QString& receiver, const QString& extension) {
    const QString last = lastURLPathComponent(receiver);
    const QString extended = extension.isEmpty() ? last : last + QLatin1Char('.') + extension;
    return stringByAppendingURLPathComponent(stringByDeletingLastURLPathComponent(receiver), extended);
}

QString stringByDeletingURLPathExtension(const QString& receiver) {
    const QString last = lastURLPathComponent(receiver);
    const qsizetype dot = extensionDot(last);
    return stringByAppendingURLPathComponent(stringByDeletingLastURLPathComponent(receiver),
                                             dot < 0 ? last : last.left(dot));
}

std::optional<Url> URLValue(const QString& receiver) {
    if (QDir::isAbsolutePath(receiver)) {
        return Url::fileURLWithPath(receiver);
    }
    return Url::URLWithString(receiver);
}

std::optional<Url> URLValueRelativeToURL(const QString& receiver, const Url& base) {
    return Url::URLWithString(receiver, base);
}

QString base64EncodedString(const QString& receiver) {
    return QString::fromLatin1(receiver.toUtf8().toBase64());
}

QString base64DecodedString(const QString& receiver) {
    static const QByteArray alphabet("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    static const std::array<int, 128> table = [] {
        std::array<int, 128> t{};
        t.fill(-1);
        for (int i = 0; i < alphabet.size(); ++i) {
            t[static_cast<unsigned char>(alphabet.at(i))] = i;
        }
        return t;
    }();
    QByteArray bytes;
    quint32 group = 0;
    int count = 0;
    for (const char c : receiver.toLatin1()) {
        const int value = table[static_cast<uchar>(c) & 0x7F];
        if (value < 0) {
            continue; // "=", line breaks and anything else outside the alphabet
        }
        group = (group << 6) | static_cast<quint32>(value);
        if (++count == 4) {
            bytes += static_cast<char>(group >> 16);
            bytes += static_cast<char>(group >> 8);
            bytes += static_cast<char>(group);
            group = 0;
            count = 0;
        }
    }
    if (count == 2) {
        bytes += static_cast<char>(group >> 4);
    } else if (count == 3) {
        bytes += static_cast<char>(group >> 10);
        bytes += static_cast<char>(group >> 2);
    }
    if (bytes.isEmpty()) {
        return QString();
    }
    return QString::fromUtf8(bytes);
}

} // namespace corvina::RequestUtils
