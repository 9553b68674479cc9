// Display texts: the strings-file parser's edge cases, formatting with
// positional arguments, locale selection beside the program, and the shipped
// German file, which must be UTF-8, keep the printf conversions of its keys
// and translate every key that the engine and the window look up.
#include <QDirIterator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <localization/KVParser.h>
#include <localization/LocaleLoader.h>
#include <localization/LocaleStrings.h>

#include <cstdlib>
#include <stdexcept>

namespace {

using B = QByteArray;
const QString kSourceDir = QStringLiteral(NM_SOURCE_DIR);

QString read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The printf conversions of a text: "1$s" for a numbered one, "s" for a
// plain one; numbered ones may come in any order.
QStringList conversions(const QString &text)
{
    static const QRegularExpression conversion("%(\\d+\\$)?[-+ #0']*[\\d*]*(?:\\.[\\d*]+)?[hlLqjzt]*([^%])");
    QStringList found;
    for (auto it = conversion.globalMatch(QString(text).remove("%%")); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        found << m.captured(1) + m.captured(2);
    }
    if (!found.isEmpty() && found[0].contains('$'))
        found.sort();
    return found;
}

} // namespace

class TestLocalization : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    // The table that a locale gives, and what a lookup through it formats
    // with the arguments 3, 1, 0, 4, converted from UTF-8 as the window
    // converts it, after the text of any exception on the way. "file" reads
    // the row's strings (none when null) as fr_FR; other locales read
    // <build>/locales, which holds de.lproj only; "system" is de_AT here.
    void lookup_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<B>("strings");
        QTest::addColumn<B>("key");
        QTest::addColumn<QString>("expected");
        const B exit = "\"Exit\" = \"Beenden\";\n";
        const B status = "   %1$s finished, %2$s failed, %3$s pending, %4$s total";
        const QString none = "Could not find locale strings file for: fr_FR\nExit";
        QTest::newRow("entry") << "file" << exit << B("Exit") << "Beenden";
        QTest::newRow("absent key") << "file" << exit << B("Clear All") << "Clear All";
        QTest::newRow("missing file") << "file" << B() << B("Exit") << none;
        QTest::newRow("later line wins") << "file" << B("\"k\" = \"a\";\n\"k\" = \"b\";\n") << B("k") << "b";
        QTest::newRow("three pieces") << "file" << B("\"a\" = \"b\" = \"c\";\n") << B("a") << "a";
        QTest::newRow("empty value") << "file" << B("\"Exit\" = \"\";\n") << B("Exit") << "Exit";
        QTest::newRow("indented line") << "file" << B("  \"k\" = \"v\";\n") << B("k") << "k";
        QTest::newRow("CR LF") << "file" << B("\"k\" = \"v\";\r\n\"l\" = \"w\";\r\n") << B("k") << "v";
        QTest::newRow("stray CR keeps quote") << "file" << B("\"k\" = \"v\";\r\r\n") << B("k") << "v\";";
        QTest::newRow("lone CR at the end") << "file" << B("\"k\" = \"v\";\r") << B("k") << "v\";";
        QTest::newRow("escaped LF") << "file" << B("\"A\\nB\" = \"C\\nD\";\n") << B("A\nB") << "C\nD";
        QTest::newRow("escaped quote dropped") << "file" << B("\"k\" = \"a\\\"b\";\n") << B("k") << "a\\b";
        QTest::newRow("quote and backslash in key") << "file" << B("\"Say \\\"hi\\\" to a\\\\b\" = \"ok\";\n")
                                                    << B("Say \"hi\" to a\\b") << "ok";
        QTest::newRow("backslash v is v") << "file" << B("\"k\" = \"tab\\vx\";\n") << B("k") << "tabvx";
        QTest::newRow("cut at 998") << "file" << exit << B(1200, 'x') << QString(998, 'x');
        QTest::newRow("reordered") << "file" << B("\"%1$s of %2$s\" = \"%2$s: %1$s\";") << B("%1$s of %2$s")
                                   << "1: 3";
        QTest::newRow("de_AT uses de") << "de_AT" << B() << status
                                       << "   3 abgeschlossen, 1 fehlgeschlagen, 0 ausstehend, 4 insgesamt";
        QTest::newRow("system locale") << "system" << B() << B("Exit") << "Beenden";
        QTest::newRow("null parser keeps table") << "null" << B() << B("Exit") << "Parser is nil\nBeenden";
    }
    void lookup()
    {
        QFETCH(QString, locale);
        QFETCH(B, strings);
        QFETCH(B, key);
        QFETCH(QString, expected);
        const QString dir = m_dir.filePath(QTest::currentDataTag());
        QFile file(dir + "/Localizable.strings");
        QVERIFY(strings.isNull()
                || (QDir().mkpath(dir) && file.open(QIODevice::WriteOnly) && file.write(strings) > 0));
        file.close();
        const QString name = locale == "file" ? "fr_FR" : locale == "null" ? "de" : locale;
        QString text;
        try {
            if (locale == "system")
                loadLocaleStrings();
            else
                LocaleStrings::instance().setParser(new NMLOCAL::KVParser("Localizable.strings"), qPrintable(name),
                                                    (locale == "file" ? dir : localeDirectory(name)).toStdString(),
                                                    "Localizable.strings");
            if (locale == "null")
                LocaleStrings::instance().setParser(nullptr, "de", "", "Localizable.strings");
        } catch (const std::runtime_error &e) {
            text = e.what();
        } catch (const char *message) {
            text = message;
        }
        text += QString::fromUtf8(LocaleStrings::instance().format(key.constData(), "3", "1", "0", "4").c_str());
        QCOMPARE(text, expected);
    }

    // Every line one entry with an ASCII key, valid UTF-8 without control
    // characters or doubly encoded letters, and the key's conversions; and a text
    // for every literal passed to format() or to a macro forwarding to it.
    void germanFile()
    {
        const QRegularExpression entry("^\"([ -~]+)\" = \"(.+)\";$");
        const QRegularExpression bad("[\\x00-\\x1f\\x7f-\\x9f\\x{fffd}]|[\\x{c2}\\x{c3}][\\x{80}-\\x{bf}]|\" = \".*\" = \"");
        QStringList problems, keys;
        for (const QString &line : read(kSourceDir + "/locales/de.lproj/Localizable.strings").split('\n')) {
            const QRegularExpressionMatch m = entry.match(line);
            if (!line.isEmpty() && (!m.hasMatch() || line.contains(bad) || keys.contains(m.captured(1))
                                    || conversions(m.captured(1)) != conversions(m.captured(2))))
                problems << line;
            keys << m.captured(1);
        }
        QStringList sources{kSourceDir + "/localization/include/localization/LocaleText.h"};
        for (const char *area : {"engine", "gui"})
            for (QDirIterator it(kSourceDir + '/' + area, {"*.cpp", "*.h"}, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
                sources << it.next();
        // Keys compare as written, backslash escapes and all, in code and file.
        const QRegularExpression call("\\b(?:NM_TR|format)\\s*\\(\\s*((?:\"(?:[^\"\\\\]|\\\\.)*\"\\s*)+)");
        const QRegularExpression literal("\"((?:[^\"\\\\]|\\\\.)*)\"");
        int checked = 0;
        for (const QString &source : qAsConst(sources)) {
            for (auto it = call.globalMatch(read(source)); it.hasNext(); ++checked) {
                QString key;
                for (auto part = literal.globalMatch(it.next().captured(1)); part.hasNext();)
                    key += part.next().captured(1);
                if (!keys.contains(key))
                    problems << source + ": no German text for \"" + key + '"';
            }
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join('\n')));
        QVERIFY(keys.size() > 100 && checked > 50);
    }
};

int main(int argc, char **argv)
{
    // The system locale is fixed when Qt first asks for it.
    setenv("LC_ALL", "de_AT.UTF-8", 1);
    setenv("LANG", "de_AT.UTF-8", 1);
    QCoreApplication app(argc, argv);
    TestLocalization test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_localization.moc"
