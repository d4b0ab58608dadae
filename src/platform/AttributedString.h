#pragma once

#include <QByteArray>
#include <QString>

namespace corvina {

// A text that may carry formatting: either plain text or rich text given as HTML. Shared items carry
// their content and title as such texts.
class AttributedString {
public:
    AttributedString() = default;
    static AttributedString fromPlainText(const QString& text);
    static AttributedString fromHtml(const QString& html);

    // The characters without formatting.
    QString string() const;
    bool isRichText() const { return m_rich; }
    // The whole text as an HTML document in UTF-8, as Qt's rich-text export writes it. Needs a
    // QGuiApplication (fonts); safe on any thread, each call works on its own document.
    QByteArray htmlData() const;

private:
    QString m_source;
    bool m_rich = false;
};

} // namespace corvina
