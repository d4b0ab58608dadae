#pragma once

#include <QList>
#include <QString>
#include <QStringView>

namespace corvina {

// Finds the links in free text that a reader would point at, in the order they appear:
//
// - web links with a scheme: any "name://…" ("https://", "ftp://", "file:///…") and "mailto:…";
// - web links without one: "www.example.com", "example.com/path", "bücher.de"; a host without
//   "www." in front counts only when its last label is a real top-level domain (the committed list
//   in resources/linkdetector/tlds.txt), so "e.g.", "v1.2" or "file.txt" are no links;
// - e-mail addresses, whose domain must end in a real top-level domain too.
//
// Trailing sentence punctuation (". , ; : ! ? ' *" and "…") is not part of a link, nor is a closing
// ")" or "]" that the link did not open, so "(see https://example.com/a_(b))." gives
// "https://example.com/a_(b)". Spaces, quotation marks, angle brackets, dashes other than "-",
// CJK and full-width punctuation and symbols such as emoji end a link; letters of any script
// belong to it.
class LinkDetector {
public:
    enum class Kind { Web, Mail };

    struct Match {
        // Where the link's text lies in the searched text, in UTF-16 code units.
        qsizetype location = 0;
        qsizetype length = 0;
        // The absolute link: the text as written, with "http://" in front of a web link that had no
        // scheme and "mailto:" in front of an e-mail address. Nothing is lower-cased or
        // percent-encoded, so a link that is in the text can be found there again by its `url`
        // (the HTML rendering of a message relies on that); non-ASCII characters stay as written,
        // which HTML and Qt's URL classes both accept.
        QString url;
        Kind kind = Kind::Web;

        bool operator==(const Match&) const = default;
    };

    // Every link in `text`, in the order found; none overlap. Linear in the length of the text.
    static QList<Match> matches(const QString& text);

    // Whether `label` ("com", "DE", "рф" or "xn--p1ai") is on the list of real top-level domains.
    static bool isTopLevelDomain(QStringView label);
};

} // namespace corvina
