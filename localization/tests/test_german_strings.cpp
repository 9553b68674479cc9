// The German strings file: well-formed Latin-1 entries whose translations keep
// the printf conversions of their keys, and a translation for every literal key
// that the engine and the window pass to LocaleStrings::format, directly or
// through a macro that forwards to it.
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QtTest>

#include <localization/KVParser.h>
#include <localization/LocaleStrings.h>

#include <cctype>
#include <map>

namespace {

const QString kSourceDir = QStringLiteral(NM_SOURCE_DIR);
const QString kGermanDir = kSourceDir + QStringLiteral("/locales/de.lproj");
const QByteArray kSeparator = "\" = \"";

// Conversions by argument number ({1: 's'}); false when numbered and plain
// conversions are mixed or a lone '%' ends the text.
bool conversions(const QByteArray &text, std::map<int, char> &out)
{
    bool numbered = false, plain = false;
    int next = 1;
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != '%')
            continue;
        if (++i == text.size())
            return false;
        if (text[i] == '%')
            continue;
        int j = i, number = 0;
        while (j < text.size() && std::isdigit(uchar(text[j])))
            number = number * 10 + (text[j++] - '0');
        if (j > i && j < text.size() && text[j] == '$') {
            numbered = true;
            i = j + 1;
        } else {
            plain = true;
            number = next++;
        }
        while (i < text.size() && QByteArray("-+ #0'123456789.*hlLqjzt").contains(text[i]))
            ++i;
        if (i == text.size())
            return false;
        out[number] = text[i];
    }
    return !(numbered && plain);
}

// Names of the macros that hand their arguments to format(...), such as
// `#define TEXT(...) convert(LocaleStrings::instance().format(__VA_ARGS__))`.
QStringList lookupMacros(const QString &src)
{
    static const QRegularExpression define(
        QStringLiteral("#\\s*define\\s+(\\w+)\\s*\\(\\s*\\.\\.\\.\\s*\\)((?:\\\\\\n|[^\\n])*)"));
    QStringList names;
    for (auto it = define.globalMatch(src); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        if (m.captured(2).contains(QRegularExpression(QStringLiteral("\\bformat\\s*\\(\\s*__VA_ARGS__"))))
            names << m.captured(1);
    }
    return names;
}

// The string literals passed as the first argument of name(...), with the
// C++ escapes resolved and adjacent literals joined.
QList<QByteArray> literalKeys(const QByteArray &src, const QByteArray &name)
{
    QList<QByteArray> keys;
    const auto skipBlanks = [&src](int i) {
        while (i < src.size() && std::isspace(uchar(src[i])))
            ++i;
        return i;
    };
    for (int at = src.indexOf(name); at >= 0; at = src.indexOf(name, at + 1)) {
        if (at > 0 && (std::isalnum(uchar(src[at - 1])) || src[at - 1] == '_'))
            continue;
        int i = skipBlanks(at + name.size());
        if (i >= src.size() || src[i] != '(')
            continue;
        QByteArray key;
        bool literal = false;
        for (i = skipBlanks(i + 1); i < src.size() && src[i] == '"'; i = skipBlanks(i + 1)) {
            literal = true;
            for (++i; i < src.size() && src[i] != '"'; ++i) {
                if (src[i] != '\\' || ++i == src.size()) {
                    key += src[i];
                    continue;
                }
                const int escape = QByteArray("ntr\"\\abfv").indexOf(src[i]);
                key += escape >= 0 ? "\n\t\r\"\\\a\b\f\v"[escape] : src[i];
            }
        }
        if (literal)
            keys.append(key);
    }
    return keys;
}

} // namespace

class TestGermanStrings : public QObject
{
    Q_OBJECT

private slots:
    void entriesAreWellFormed();
    void latin1RoundTrip_data();
    void latin1RoundTrip();
    void coversKeysInCode();
};

void TestGermanStrings::entriesAreWellFormed()
{
    QFile file(kGermanDir + QStringLiteral("/Localizable.strings"));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    QStringList problems;
    QSet<QByteArray> seen;
    int entries = 0;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.isEmpty())
            continue;
        const int at = line.indexOf(kSeparator);
        const bool shaped = line.startsWith('"') && line.endsWith("\";") && at > 0
                            && line.indexOf(kSeparator, at + kSeparator.size()) < 0;
        const QByteArray key = line.mid(1, at - 1);
        const QByteArray value = line.mid(at + kSeparator.size(), line.size() - at - kSeparator.size() - 2);
        bool latin1 = !key.isEmpty() && !value.isEmpty();
        for (const char c : key)
            latin1 = latin1 && uchar(c) >= 0x20 && uchar(c) < 0x7f;
        for (int i = 0; i < value.size(); ++i) {
            const uchar c = uchar(value[i]);
            const bool utf8Pair = (c == 0xc2 || c == 0xc3) && i + 1 < value.size()
                                  && uchar(value[i + 1]) >= 0x80 && uchar(value[i + 1]) < 0xc0;
            latin1 = latin1 && ((c >= 0x20 && c < 0x7f) || c >= 0xa0) && !utf8Pair;
        }
        std::map<int, char> keyConversions, valueConversions;
        const bool sameConversions = conversions(key, keyConversions)
                                     && conversions(value, valueConversions)
                                     && keyConversions == valueConversions;
        if (!shaped || !latin1 || !sameConversions || seen.contains(key))
            problems << QString::fromLatin1(line);
        seen.insert(key);
        ++entries;
    }
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    QVERIFY(entries > 100);
}

void TestGermanStrings::latin1RoundTrip_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("expected");

    QTest::newRow("menu action") << QByteArray("Open Files") << QString::fromUtf8("Dateien \xc3\xb6" "ffnen");
    QTest::newRow("capital umlaut") << QByteArray("About...") << QString::fromUtf8("\xc3\x9c" "ber...");
    QTest::newRow("with argument") << QByteArray("%s duplicates skipped.")
                                   << QString::fromUtf8("7 Duplikate \xc3\xbc" "bersprungen.");
    QTest::newRow("status line") << QByteArray("   %1$s finished, %2$s failed, %3$s pending, %4$s total")
                                 << QStringLiteral("   7 abgeschlossen, 8 fehlgeschlagen, 9 ausstehend, 24 insgesamt");
}

void TestGermanStrings::latin1RoundTrip()
{
    QFETCH(QByteArray, key);
    QFETCH(QString, expected);
    LocaleStrings::instance().setParser(new NMLOCAL::KVParser("Localizable.strings"), "de_DE",
                                        kGermanDir.toStdString(), "Localizable.strings");
    const std::string text = LocaleStrings::instance().format(key.constData(), "7", "8", "9", "24");
    QCOMPARE(QString::fromLatin1(text.c_str()), expected);
}

void TestGermanStrings::coversKeysInCode()
{
    NMLOCAL::KVParser german("Localizable.strings");
    german.setDirectory(kGermanDir.toStdString());
    german.parse();

    QMap<QString, QByteArray> sources;
    for (const char *area : {"engine", "gui"}) {
        QDirIterator it(kSourceDir + QLatin1Char('/') + QLatin1String(area),
                        {"*.cpp", "*.h", "*.hpp", "*.cc"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile source(it.next());
            if (source.open(QIODevice::ReadOnly))
                sources.insert(source.fileName(), source.readAll());
        }
    }
    QStringList callers{QStringLiteral("format")};
    for (const QByteArray &text : sources)
        callers << lookupMacros(QString::fromUtf8(text));
    // The shared lookup macro lives beside the table.
    QFile shared(kSourceDir + QStringLiteral("/localization/include/localization/LocaleText.h"));
    if (shared.open(QIODevice::ReadOnly))
        callers << lookupMacros(QString::fromUtf8(shared.readAll()));

    QStringList missing;
    for (auto source = sources.cbegin(); source != sources.cend(); ++source) {
        for (const QString &caller : callers) {
            for (const QByteArray &key : literalKeys(source.value(), caller.toLatin1())) {
                if (!german.contains(key.toStdString()))
                    missing << QStringLiteral("%1: \"%2\"").arg(source.key(), QString::fromUtf8(key));
            }
        }
    }
    missing.removeDuplicates();
    QVERIFY2(missing.isEmpty(), qPrintable("No German text for:\n" + missing.join(QLatin1Char('\n'))));
}

QTEST_APPLESS_MAIN(TestGermanStrings)
#include "test_german_strings.moc"
