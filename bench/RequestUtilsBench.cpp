// Percent-encoding and query parsing next to Qt's own (QUrl::toPercentEncoding, QUrlQuery) on the
// same inputs in the same run. Qt's are the floor: they do less (no repeat modes, no lists).
#include "requestutils/RequestUtils.h"

#include <QRandomGenerator>
#include <QUrl>
#include <QUrlQuery>
#include <benchmark/benchmark.h>

namespace {

const QStringList& texts() {
    static const QStringList list = [] {
        QRandomGenerator random(3);
        QStringList out;
        for (int i = 0; i < 1000; ++i) {
            QString t;
            const int n = random.bounded(5, 40);
            for (int j = 0; j < n; ++j) {
                const char32_t c =
                    random.bounded(4) == 0 ? random.bounded(0xA0, 0x500) : random.bounded(0x20, 0x7F);
                t += QString::fromUcs4(&c, 1);
            }
            out << t;
        }
        return out;
    }();
    return list;
}

const QStringList& queries() {
    static const QStringList list = [] {
        QStringList out;
        int k = 0;
        for (const QString& t : texts()) {
            out << QStringLiteral("a=%1&b%2=%3&c=x+y&a=2")
                       .arg(QString::fromLatin1(QUrl::toPercentEncoding(t)))
                       .arg(k++ % 7)
                       .arg(QString::fromLatin1(QUrl::toPercentEncoding(t.left(5))));
        }
        return out;
    }();
    return list;
}

void EncodeFloorQt(benchmark::State& state) {
    for (auto _ : state) {
        for (const QString& t : texts()) {
            benchmark::DoNotOptimize(QUrl::toPercentEncoding(t));
        }
    }
    state.SetItemsProcessed(state.iterations() * texts().size());
}

void URLEncodedString(benchmark::State& state) {
    for (auto _ : state) {
        for (const QString& t : texts()) {
            benchmark::DoNotOptimize(corvina::RequestUtils::URLEncodedString(t));
        }
    }
    state.SetItemsProcessed(state.iterations() * texts().size());
}

void ParseFloorQt(benchmark::State& state) {
    for (auto _ : state) {
        for (const QString& q : queries()) {
            QUrlQuery query(q);
            benchmark::DoNotOptimize(query.queryItems(QUrl::FullyDecoded));
        }
    }
    state.SetItemsProcessed(state.iterations() * queries().size());
}

void URLQueryParametersWithOptions(benchmark::State& state) {
    for (auto _ : state) {
        for (const QString& q : queries()) {
            benchmark::DoNotOptimize(corvina::RequestUtils::URLQueryParametersWithOptions(q, 3));
        }
    }
    state.SetItemsProcessed(state.iterations() * queries().size());
}

BENCHMARK(EncodeFloorQt);
BENCHMARK(URLEncodedString);
BENCHMARK(ParseFloorQt);
BENCHMARK(URLQueryParametersWithOptions);

} // namespace

BENCHMARK_MAIN();
