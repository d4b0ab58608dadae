#include "AttributedString.h"

#include <QTextDocument>

namespace corvina {

AttributedString AttributedString::fromPlainText(const QString& text) {
    AttributedString result;
    result.m_source = text;
    return result;
}

AttributedString AttributedString::fromHtml(const QString& html) {
    AttributedString result;
    result.m_source = html;
    result.m_rich = true;
    return result;
}

QString AttributedString::string() const {
    if (!m_rich)
        return m_source;
    QTextDocument document;
    document.setHtml(m_source);
    return document.toPlainText();
}

QByteArray AttributedString::htmlData() const {
    QTextDocument document;
    if (m_rich)
        document.setHtml(m_source);
    else
        document.setPlainText(m_source);
    return document.toHtml().toUtf8();
}

} // namespace corvina
