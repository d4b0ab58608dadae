#pragma once

#include "HTTPRequest.h"
#include "Url.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <limits>
#include <optional>

// URL handling shared by the mail application's extensions: percent-encoding, query strings and
// parameters, URL strings and components, base64 text, HTTP requests with parameters and basic
// authentication. Free functions taking the receiver first; pure, no state, callable from any thread.
namespace corvina::RequestUtils {

// ---- query parameters ------------------------------------------------------------------------

// Parameters: keys to a QString or to a list of strings (QStringList, or a QVariantList of strings).
using Parameters = QVariantMap;

// The option bits: the repeat mode in bits 0-2, and the bracket bit.
enum URLQueryOptions : quint32 {
    URLQueryRepeatMode = 7,
    URLQueryKeepLast = 1,
    URLQueryKeepFirst = 2,
    URLQueryCollectRepeats = 3,
    URLQueryCollectAll = 4,
    URLQueryBracketArrays = 8,
};

// Every UTF-8 byte as "%XX" (upper-case hex) except A-Z, a-z, 0-9 and "-", "_", ".", "~".
// A space is "%20", never "+".
QString URLEncodedString(const QString& receiver);
// Escapes replaced by their bytes, read as UTF-8; with `plusAsSpace`, "+" is a space first.
// Null where the escapes do not make UTF-8 (and for a "%" not followed by two hex digits).
QString URLDecodedString(const QString& receiver, bool plusAsSpace);

// Parameters as query text, without "?". Mode 0 writes as 3: each list element its own pair.
QString URLQueryWithParameters(const Parameters& parameters, quint32 options = 0);

// The receiver's query (see URLQuery) parsed. Mode 0 reads as 1: a repeated key keeps its last
// value. A piece whose key or value does not decode (invalid UTF-8 escapes) is skipped.
Parameters URLQueryParameters(const QString& receiver);
Parameters URLQueryParametersWithOptions(const QString& receiver, quint32 options);

struct Range {
    static constexpr qint64 NotFound = std::numeric_limits<qint64>::max();
    qint64 location = NotFound;
    qint64 length = 0;
    bool operator==(const Range&) const = default;
};

// Where the query lies, its "?" included: after the first "?" and before the first "#". Without
// "?", a text holding "=" before any "#" is a query as a whole. A "?" that comes only after the
// first "#" belongs to the fragment: no query.
Range rangeOfURLQuery(const QString& receiver);
// The query text without its "?"; null when there is none ("path?" gives "").
QString URLQuery(const QString& receiver);

// ---- URL strings -----------------------------------------------------------------------------

QString URLFragment(const QString& receiver);
QString stringByDeletingURLFragment(const QString& receiver);
QString stringByAppendingURLFragment(const QString& receiver, const QString& fragment);
QString stringByDeletingURLQuery(const QString& receiver);
QString stringByAppendingURLQuery(const QString& receiver, const QString& query);
QString stringByReplacingURLQueryWithQuery(const QString& receiver, const QString& query);
QString stringByMergingURLQuery(const QString& receiver, const QString& query, quint32 options = 0);
QString stringByAppendingURLPathComponent(const QString& receiver, const QString& component);
QString stringByDeletingLastURLPathComponent(const QString& receiver);
QString lastURLPathComponent(const QString& receiver);
QString URLPathExtension(const QString& receiver);
QString stringByAppendingURLPathExtension(const QString& receiver, const QString& extension);
QString stringByDeletingURLPathExtension(const QString& receiver);
// An absolute file path becomes a file URL; anything else is parsed as a URL.
std::optional<Url> URLValue(const QString& receiver);
std::optional<Url> URLValueRelativeToURL(const QString& receiver, const Url& base);

// Standard alphabet, padded, no line breaks; "" for "".
QString base64EncodedString(const QString& receiver);
// Characters outside the alphabet ("=" and line breaks included) are skipped; unpadded input reads
// as padded. Null when no bytes result.
QString base64DecodedString(const QString& receiver);

// ---- URL components --------------------------------------------------------------------------

inline const QString URLSchemeComponent = QStringLiteral("scheme");
inline const QString URLHostComponent = QStringLiteral("host");
inline const QString URLPortComponent = QStringLiteral("port");
inline const QString URLUserComponent = QStringLiteral("user");
inline const QString URLPasswordComponent = QStringLiteral("password");
inline const QString URLPathComponent = QStringLiteral("path");
inline const QString URLParameterStringComponent = QStringLiteral("parameterString");
inline const QString URLQueryComponent = QStringLiteral("query");
inline const QString URLFragmentComponent = QStringLiteral("fragment");

// A URL from named components (values are texts; the port may be a number and the query a
// Parameters map); nothing when the text they make is no URL.
std::optional<Url> URLWithComponents(const QVariantMap& components);
// The URL's components that are not null, by key.
QVariantMap components(const Url& receiver);
std::optional<Url> URLWithValue(const Url& receiver, const QVariant& value, const QString& component);
std::optional<Url> URLWithHost(const Url& receiver, const QVariant& host);
std::optional<Url> URLWithPort(const Url& receiver, const QVariant& port);
std::optional<Url> URLWithUser(const Url& receiver, const QVariant& user);
std::optional<Url> URLWithPassword(const Url& receiver, const QVariant& password);
std::optional<Url> URLWithPath(const Url& receiver, const QVariant& path);
std::optional<Url> URLWithParameterString(const Url& receiver, const QVariant& parameterString);
std::optional<Url> URLWithQuery(const Url& receiver, const QVariant& query);
std::optional<Url> URLWithFragment(const Url& receiver, const QVariant& fragment);
// Text-based: the current scheme's length cut off the front and `scheme` put there instead.
std::optional<Url> URLWithScheme(const Url& receiver, const QString& scheme);

// ---- HTTP requests ---------------------------------------------------------------------------

HTTPRequest HTTPRequestWithURL(const Url& url, const QString& method, const Parameters& parameters);
HTTPRequest GETRequestWithURL(const Url& url, const Parameters& parameters);
HTTPRequest POSTRequestWithURL(const Url& url, const Parameters& parameters);
Parameters GETParameters(const HTTPRequest& receiver);
Parameters POSTParameters(const HTTPRequest& receiver);
QStringList HTTPBasicAuthComponents(const HTTPRequest& receiver);
QString HTTPBasicAuthUser(const HTTPRequest& receiver);
QString HTTPBasicAuthPassword(const HTTPRequest& receiver);
void setGETParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options = 0);
void addGETParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options = 0);
void setPOSTParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options = 0);
void addPOSTParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options = 0);
void setHTTPBasicAuthUser(HTTPRequest& receiver, const QString& user, const QString& password);

} // namespace corvina::RequestUtils
