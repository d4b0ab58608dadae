// URLs from named components, and URLs with one component changed.
#include "RequestUtils.h"

namespace corvina::RequestUtils {

namespace {

QString text(const QVariantMap& map, const QString& key) {
    const QVariant value = map.value(key);
    return value.isValid() ? value.toString() : QString();
}

} // namespace

std::optional<Url> URLWithComponents(const QVariantMap& c) {
    // built from the right: each component goes in front of what is there
    QString out = QLatin1String("");
    const QString fragment = text(c, URLFragmentComponent);
    if (!fragment.isNull()) {
        out = QLatin1Char('#') + fragment;
    }
    const QVariant queryValue = c.value(URLQueryComponent);
    if (queryValue.isValid()) {
        const QString query = queryValue.typeId() == QMetaType::QVariantMap
                                  ? URLQueryWithParameters(queryValue.toMap())
                                  : queryValue.toString();
        out = QLatin1Char('?') + query + out;
    }
    const QString parameterString = text(c, URLParameterStringComponent);
    if (!parameterString.isNull()) {
        out = QLatin1Char(';') + parameterString + out;
    }
    const QString path = text(c, URLPathComponent);
    if (!path.isNull()) {
        out = path + out; // as it is: no "/" is added
    }
    const QString port = text(c, URLPortComponent);
    if (!port.isNull()) {
        out = QLatin1Char(':') + port + out;
    }
    const QString host = text(c, URLHostComponent);
    if (!host.isNull()) {
        out = host + out;
    }
    const QString user = text(c, URLUserComponent);
    if (!user.isNull()) {
        const QString password = text(c, URLPasswordComponent);
        out = user + (password.isNull() ? QString() : QLatin1Char(':') + password) + QLatin1Char('@') + out;
    }
    const QString scheme = text(c, URLSchemeComponent);
    if (!scheme.isNull()) {
        out = scheme + QLatin1String("://") + out;
    }
    return Url::URLWithString(out);
}

QVariantMap components(const Url& receiver) {
    QVariantMap out;
    auto put = [&out](const QString& key, const QString& value) {
        if (!value.isNull()) {
            out.insert(key, value);
        }
    };
    put(URLSchemeComponent, receiver.scheme());
    put(URLHostComponent, receiver.host());
    put(URLPortComponent, receiver.port());
    put(URLUserComponent, receiver.user());
    put(URLPasswordComponent, receiver.password());
    put(URLPathComponent, receiver.path());
    put(URLParameterStringComponent, receiver.parameterString());
    put(URLQueryComponent, receiver.query());
    put(URLFragmentComponent, receiver.fragment());
    return out;
}

std::optional<Url> URLWithValue(const Url& receiver, const QVariant& value, const QString& component) {
    QVariantMap c = components(receiver);
    if (value.isNull()) {
        c.remove(component);
    } else {
        c.insert(component, value);
    }
    return URLWithComponents(c);
}

std::optional<Url> URLWithHost(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLHostComponent);
}
std::optional<Url> URLWithPort(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLPortComponent);
}
std::optional<Url> URLWithUser(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLUserComponent);
}
std::optional<Url> URLWithPassword(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLPasswordComponent);
}
std::optional<Url> URLWithPath(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLPathComponent);
}
std::optional<Url> URLWithParameterString(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLParameterStringComponent);
}
std::optional<Url> URLWithQuery(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLQueryComponent);
}
std::optional<Url> URLWithFragment(const Url& r, const QVariant& v) {
    return URLWithValue(r, v, URLFragmentComponent);
}

std::optional<Url> URLWithScheme(const Url& receiver, const QString& scheme) {
    // by text, not through the components: "://" stays, and a URL without a scheme gets the new
    // text straight in front
    return Url::URLWithString(scheme + receiver.absoluteString().mid(receiver.scheme().size()));
}

} // namespace corvina::RequestUtils
