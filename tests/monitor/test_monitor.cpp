// teco-monitor's real widgets against the simulated drive: tags polled and
// written through the driver plug-in (typed while the poll refreshes, and
// confirmed), trends while their tags go away, the frame trace and link
// health with injected faults, a silent station among live ones, the scan,
// tag list files, and the program's screenshot.

#include "mainwindow.h"
#include "parammap.h"
#include "paramview.h"
#include "scanview.h"
#include "tagmodel.h"
#include "trafficview.h"
#include "trendview.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QStatusBar>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTableView>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <set>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The machine is slow and busy: generous limits, never fixed sleeps.
constexpr int waitMs = 60000;

QPushButton *buttonNamed(QWidget *parent, const QString &text)
{
    for (QPushButton *b : parent->findChildren<QPushButton *>())
        if (b->text() == text)
            return b;
    return nullptr;
}

QString readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Sets a spin box as a user does: select its text, type the number.
void typeInto(QSpinBox *box, int value)
{
    box->selectAll();
    QTest::keyClicks(box, QString::number(value));
    box->interpretText();
}

bool writeFile(const QString &path, const QByteArray &text)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
}

} // namespace

class MonitorTest : public QObject
{
    Q_OBJECT

    MainWindow *window = nullptr;
    QTemporaryDir dir;

    int rowOf(const QString &tag) const
    {
        TagModel *m = window->tags();
        for (int r = 0; r < m->rowCount(); ++r)
            if (m->index(r, TagModel::TagColumn).data().toString() == tag)
                return r;
        return -1;
    }
    QString valueOf(const QString &tag) const
    {
        const int r = rowOf(tag);
        return r < 0 ? QString() : window->tags()->index(r, TagModel::ValueColumn).data().toString();
    }

    // Injects a fault rule into the simulated drive as a user does; "" when
    // the drive took it, else why not.
    QString injectFault(const QString &rule) const
    {
        TrafficView *traffic = window->traffic();
        QSignalSpy answered(window, &MainWindow::faultAnswered);
        traffic->findChild<QLineEdit *>()->setText(rule);
        QTest::mouseClick(buttonNamed(traffic, "Inject fault"), Qt::LeftButton);
        if (!answered.wait(waitMs))
            return "no answer to the fault rule";
        return answered.first().at(0).toBool() ? QString() : answered.first().at(1).toString();
    }

    // The question a typed value asks before it is written.
    QMessageBox *confirmation() const
    {
        QMessageBox *box = nullptr;
        for (int waited = 0; !box && waited < waitMs; waited += 20) {
            for (QMessageBox *b : window->findChildren<QMessageBox *>("writeConfirmation"))
                box = b->isVisible() ? b : box;
            if (!box)
                QTest::qWait(20);
        }
        return box;
    }
    QLineEdit *openEditor() const
    {
        for (QLineEdit *e : window->tagView()->viewport()->findChildren<QLineEdit *>())
            if (e->isVisible())
                return e;
        return nullptr;
    }
    QCheckBox *pollBox() const
    {
        for (QCheckBox *b : window->findChildren<QCheckBox *>())
            if (b->text() == "Poll every")
                return b;
        return nullptr;
    }
    QSpinBox *spinNamed(const char *name) const { return window->findChild<QSpinBox *>(name); }
    // The readings of a tag among those a spy saw shown (only good ones if okOnly).
    static int readingsIn(const QSignalSpy &shown, int id, bool okOnly)
    {
        return int(std::count_if(shown.begin(), shown.end(), [&](const QList<QVariant> &args) {
            const Reading r = args.at(0).value<Reading>();
            return r.id == id && (r.ok || !okOnly);
        }));
    }
    // A good reading of a model's first tag, as a poll gives it: its values
    // separated by spaces.
    static bool readInto(TagModel &model, const QString &values)
    {
        Reading r;
        r.id = model.idAt(0);
        r.revision = model.pollTag(0).revision;
        r.ok = true;
        for (const QString &v : values.split(' '))
            r.values.push_back(v.toStdString());
        return model.applyReading(r);
    }
    // Good readings of a tag shown in the window over a while of polling.
    int readingsOf(int id, int ms) const
    {
        QSignalSpy shown(window, &MainWindow::readingShown);
        QTest::qWait(ms);
        return readingsIn(shown, id, true);
    }
    bool reconnect()
    {
        QSignalSpy changed(window, &MainWindow::connectionChanged);
        window->disconnectLine();
        if (!changed.wait(waitMs))
            return false;
        window->connectLine();
        return changed.wait(waitMs) && changed.last().at(0).toBool();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        window = new MainWindow(TECO_SERVO_PLUGIN_PATH);
        QSignalSpy connected(window, &MainWindow::connectionChanged);
        window->show();
        // It connects to the simulated drive by itself.
        QVERIFY(connected.wait(waitMs));
        QVERIFY2(connected.first().at(0).toBool(), qPrintable(connected.first().at(1).toString()));
    }

    // A test that failed half-way leaves the window as the others expect it:
    // no question open (a modal one would take every click that follows) and
    // polling on.
    void cleanup()
    {
        for (QWidget *w : QApplication::topLevelWidgets()) {
            if (!w->isModal() || !w->isVisible())
                continue;
            if (auto *dialog = qobject_cast<QDialog *>(w))
                dialog->reject();
            else
                w->close();
        }
        QVERIFY(!QApplication::activeModalWidget());
        if (QCheckBox *poll = pollBox())
            poll->setChecked(true);
    }
    void cleanupTestCase() { delete window; }

    void tagListFiles_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("error"); // empty: loads, and saves back as canonical
        QTest::addColumn<QString>("saved");
        const char *const rows[][4] = {
            { "comments and blank lines skipped, fields kept",
                "# tags\n\nHR100\r\n  IR1:hex:2 station=2\nDO1 trend=off\nIR406 alarm\nHR1 trend=off alarm\n",
                "", "HR100\nIR1:hex:2 station=2\nDO1 trend=off\nIR406 alarm\nHR1 trend=off alarm\n" },
            { "station beyond 247", "HR100 station=248\n",
                "line 1: bad station \"248\" (0 for the connection's, or 1 to 247)", "" },
            { "bad address names its line", "HR100\nXY5\n", "line 2: ", "" },
            { "unknown field", "HR100 colour=red\n",
                "line 1: unknown field \"colour=red\" (station=N, trend=on|off or alarm)", "" },
        };
        for (const auto &row : rows)
            QTest::newRow(row[0]) << QByteArray(row[1]) << QString(row[2]) << QString(row[3]);
    }
    void tagListFiles()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, error);
        QFETCH(QString, saved);
        const QString path = dir.filePath("list.tags");
        QVERIFY(writeFile(path, text));
        std::vector<MonitorTag> tags;
        std::string e;
        const bool ok = loadTagList(path.toStdString(), tags, e);
        if (!error.isEmpty()) {
            QVERIFY(!ok);
            QVERIFY2(QString::fromStdString(e).startsWith(path + ", " + error), e.c_str());
            return;
        }
        QVERIFY2(ok, e.c_str());
        const QString out = dir.filePath("saved.tags");
        QVERIFY(saveTagList(out.toStdString(), tags, e));
        QCOMPARE(readAll(out).section('\n', 1), saved); // after the heading comment
    }

    void trendKeepsNewestSamples()
    {
        TrendView view(100);
        view.setTags({ { 7, "HR100" } });
        const qint64 start = 1700000000000;
        for (int i = 0; i < 1000; ++i)
            view.addSample(7, start + i * 1000, i);
        QCOMPARE(view.samples(7), 100);
        view.refresh();
        // The last minute is shown: 60 samples and the one before it.
        QVERIFY(view.plottedPoints() >= 60 && view.plottedPoints() <= 62);
        QString error;
        const QString path = dir.filePath("ring.csv");
        QVERIFY2(view.exportCsv(path, error), qPrintable(error));
        const QStringList lines = readAll(path).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 101);
        QCOMPARE(lines[0], QString("time,tag,value"));
        QVERIFY(lines[1].endsWith(",HR100,900"));
        QVERIFY(lines[1].section(',', 0, 0).endsWith('Z')); // UTC, as teco-cli logs
        QVERIFY(lines[100].endsWith(",HR100,999"));

        // A failed read breaks the line and is a row without a value.
        QCOMPARE(view.linePieces(7), 1);
        view.addGap(7, start + 1000 * 1000);
        view.addSample(7, start + 1001 * 1000, 5);
        view.refresh();
        QCOMPARE(view.linePieces(7), 2);
        QVERIFY2(view.exportCsv(path, error), qPrintable(error));
        const QStringList after = readAll(path).split('\n', Qt::SkipEmptyParts);
        QVERIFY(after[after.size() - 2].endsWith(",HR100,"));
        QVERIFY(after.last().endsWith(",HR100,5"));
    }

    // The newest sample lies on the right edge of the chart; when the span
    // divided into pixel columns rounds so that it also lies on a column's
    // end, drawing still goes on to the end (it used to loop there forever).
    void trendEndsOnAColumnEdge()
    {
        TrendView view(1000);
        view.setTags({ { 7, "HR100" } });
        const qint64 start = 1700000000000;
        // 12.88 s in 100 columns of 128.8 ms: more than two samples a column.
        for (int i = 0; i < 645; ++i)
            view.addSample(7, start + i * 20, i % 2);
        view.refresh();
        QVERIFY(view.plottedPoints() > 100 && view.plottedPoints() <= 300);
    }

    // Polling switched off and on while a read is under way: the answer that
    // comes after the switch is not shown as current, and polling goes on.
    void valuesNotPolledAreNotShownAsCurrent()
    {
        QCheckBox *poll = pollBox();
        QVERIFY(poll);
        QCOMPARE(injectFault("late:at=HR102,ms=300"), QString());
        QVERIFY(window->addTagLine("IR2")); // read just before HR102
        QVERIFY(window->addTagLine("HR102"));
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR102"), QString("200"), waitMs);
        const int before = window->tags()->idAt(rowOf("IR2"));
        const int late = window->tags()->idAt(rowOf("HR102"));
        const QModelIndex value = window->tags()->index(rowOf("HR102"), TagModel::ValueColumn);
        // Each switch comes while HR102's late answer is awaited: just after
        // the tag read before it was shown.
        auto switchWhileReading = [&](bool backOn) {
            QSignalSpy shown(window, &MainWindow::readingShown);
            const bool came = QTest::qWaitFor([&] { return readingsIn(shown, before, false) > 0; }, waitMs);
            poll->setChecked(false);
            if (backOn)
                poll->setChecked(true);
            return came;
        };
        QVERIFY(switchWhileReading(false));
        QTest::qWait(800);
        QCOMPARE(value.data(Qt::ForegroundRole).value<QBrush>().color(), QColor(Qt::gray));
        QVERIFY(value.data(Qt::ToolTipRole).toString().startsWith("not polled: polling is off"));
        poll->setChecked(true);
        for (int i = 0; i < 3; ++i)
            QVERIFY(switchWhileReading(true));
        QSignalSpy shown(window, &MainWindow::readingShown);
        QTRY_VERIFY_WITH_TIMEOUT(readingsIn(shown, late, true) >= 2, waitMs);
        QVERIFY(!value.data(Qt::ForegroundRole).isValid());
        QVERIFY(window->tags()->removeRows(rowOf("HR102"), 1));
        QVERIFY(window->tags()->removeRows(rowOf("IR2"), 1));
    }

    void liveTagsWriteAndTrend()
    {
        QVERIFY(window->addTagLine("HR100"));
        QVERIFY(window->addTagLine("IR1"));
        QVERIFY(window->addTagLine("HR101:hex"));
        QVERIFY(window->addTagLine("HR200:float32"));
        QVERIFY(!window->addTagLine("HR0")); // refused, nothing added
        QCOMPARE(window->tags()->rowCount(), 4);
        // The built-in map of the simulated drive.
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR100"), QString("1500"), waitMs);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("IR1"), QString("1498"), waitMs);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR101:hex"), QString("0x012C"), waitMs);

        // A write, read back (typed as a user types: typingWhilePollingWritesWhatWasTyped).
        TagModel *m = window->tags();
        m->setData(m->index(rowOf("HR100"), TagModel::ValueColumn), "1234", Qt::EditRole);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR100"), QString("1234"), waitMs);
        // A format: two registers written, read back as one value.
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR200:float32"), QString("0"), waitMs);
        m->setData(m->index(rowOf("HR200:float32"), TagModel::ValueColumn), "-2.5", Qt::EditRole);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR200:float32"), QString("-2.5"), waitMs);
        // Another format shows nothing in the old one.
        QVERIFY(m->setData(m->index(rowOf("IR1"), TagModel::FormatColumn), "hex", Qt::EditRole));
        QCOMPARE(valueOf("IR1:hex"), QString());
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("IR1:hex"), QString("0x05DA"), waitMs);

        // Every tag is trended; the samples export as CSV.
        TrendView *trends = window->trends();
        for (const char *tag : { "HR100", "IR1:hex", "HR101:hex", "HR200:float32" })
            QTRY_VERIFY_WITH_TIMEOUT(trends->samples(window->tags()->idAt(rowOf(tag))) >= 2, waitMs);
        trends->refresh();
        QVERIFY(trends->plottedPoints() >= 8);
        QString error;
        const QString path = dir.filePath("trend.csv");
        QVERIFY2(trends->exportCsv(path, error), qPrintable(error));
        const QString csv = readAll(path);
        QVERIFY(csv.startsWith("time,tag,value\n"));
        QVERIFY(csv.contains(",HR100,1234\n"));
        QVERIFY(csv.contains(",IR1:hex,1498\n"));
        QVERIFY(csv.contains(",HR101:hex,300\n"));
        QVERIFY(csv.contains(",HR200:float32,-2.5\n"));
    }

    // A tag's row on its own: an alarm code stands out; only numbers are
    // trended. A tag named from a map: its value in engineering units with
    // the unit, an alarm parameter highlighted with its value list's text, and
    // a value typed in engineering units checked before it is offered for a
    // write. A value that does not fit is refused before anything is sent.
    void tagRowsShowTheirKind_data()
    {
        QTest::addColumn<QString>("line"); // an address tag or a parameter's name
        QTest::addColumn<QString>("raw"); // as read
        QTest::addColumn<QString>("shown");
        QTest::addColumn<bool>("highlighted");
        QTest::addColumn<bool>("tickable");
        QTest::addColumn<QString>("typed"); // "": no write
        QTest::addColumn<QString>("outcome"); // the refusal, or "raw N" offered for the write
        const char *const rows[][8] = {
            { "alarm tag with an alarm code", "IR407 alarm", "2", "2", "1", "1", "", "" },
            { "alarm tag at zero", "IR407 alarm", "0", "0", "", "1", "", "" },
            { "any other tag, not zero", "IR407", "2", "2", "", "1", "", "" },
            { "a string", "HR500:string:4", "ab", "ab", "", "", "", "" },
            { "scaled value with its unit", "current", "125", "1.25 A", "", "1", "", "" },
            { "alarm parameter not zero", "alarm-code", "1", "over-speed", "1", "1", "", "" },
            { "alarm parameter at zero", "alarm-code", "0", "none", "", "1", "", "" },
            { "typed beyond the maximum", "speed-command", "1500", "1500 rpm", "", "1", "4000",
                "speed-command takes -3000 to 3000 rpm: 4000 is outside" },
            { "typed in engineering units goes out raw", "torque-limit", "300", "30.0 %", "", "1", "25.5",
                "raw 255" },
            { "word out of range", "HR100", "1", "1", "", "1", "70000",
                "value 70000 does not fit in a word (-32768 to 65535)" },
            { "bit other than 0 or 1", "DO1", "0", "0", "", "1", "2",
                "a bit is 0 or 1 (or on/off), not \"2\"" },
            { "fewer values than the tag has", "HR100:word:2", "1 2", "1 2", "", "1", "5",
                "HR100:word:2 takes 2 values, separated by spaces" },
            { "format's range", "HR100:int16", "5", "5", "", "1", "40000",
                "value 40000 does not fit in int16 (-32768 to 32767)" },
        };
        for (const auto &row : rows)
            QTest::newRow(row[0]) << QString(row[1]) << QString(row[2]) << QString(row[3]) << (*row[4] != 0)
                                  << (*row[5] != 0) << QString(row[6]) << QString(row[7]);
    }
    void tagRowsShowTheirKind()
    {
        QFETCH(QString, line);
        QFETCH(QString, raw);
        QFETCH(QString, shown);
        QFETCH(bool, highlighted);
        QFETCH(bool, tickable);
        QFETCH(QString, typed);
        QFETCH(QString, outcome);
        auto map = std::make_shared<ParameterMap>();
        std::string e;
        QVERIFY2(parseParameterMap("name,address,format,scale,unit,min,max,access,description,values,alarm\n"
                                   "speed-command,HR402,int16,1,rpm,-3000,3000,rw,speed asked,,\n"
                                   "torque-limit,HR101,,0.1,%,0,300,rw,torque at most,,\n"
                                   "current,IR404,,0.01,A,,,r,motor current,,\n"
                                   "alarm-code,IR406,,,,,,r,the drive's alarm,0=none;1=over-speed,yes\n",
                     *map, e),
            e.c_str());
        TagModel model;
        model.setParameterMap(map);
        QString error;
        QVERIFY2(model.addTag(line, error), qPrintable(error));
        const QModelIndex tick = model.index(0, TagModel::TagColumn);
        QCOMPARE(bool(model.flags(tick) & Qt::ItemIsUserCheckable), tickable);
        QCOMPARE(model.setData(tick, Qt::Checked, Qt::CheckStateRole), tickable);
        QCOMPARE(model.tagAt(0).trend, tickable);
        QVERIFY(readInto(model, raw));
        const QModelIndex value = model.index(0, TagModel::ValueColumn);
        QCOMPARE(value.data().toString(), shown);
        QCOMPARE(value.data(Qt::BackgroundRole).isValid(), highlighted);
        if (const Parameter *p = map->find(line.toStdString())) {
            QCOMPARE(tick.data().toString(), line);
            QVERIFY(value.data(Qt::ToolTipRole).toString().contains(QString::fromStdString(p->description)));
        }
        if (typed.isEmpty())
            return;
        QSignalSpy writes(&model, &TagModel::writeRequested);
        QSignalSpy asked(&model, &TagModel::writeToConfirm);
        QSignalSpy messages(&model, &TagModel::message);
        model.setData(value, typed, TagModel::ConfirmWriteRole);
        QCOMPARE(writes.count(), 0);
        if (!outcome.startsWith("raw ")) {
            QCOMPARE(asked.count(), 0);
            QCOMPARE(messages.count(), 1);
            QCOMPARE(messages.first().at(0).toString(), outcome);
            return;
        }
        QCOMPARE(asked.count(), 1);
        const PendingWrite w = asked.first().at(0).value<PendingWrite>();
        QCOMPARE("raw " + w.raw, outcome);
        QCOMPARE(w.words, QVector<uint>({ outcome.mid(4).toUInt() }));
        QVERIFY2(w.typed.startsWith(typed) && w.name.startsWith(line), qPrintable(w.typed + " " + w.name));
    }

    void manyTrendsTellApart()
    {
        TrendView view;
        QVector<TrendView::TrendTag> tags;
        for (int i = 0; i < 24; ++i)
            tags.push_back({ i + 1, "HR" + QString::number(i + 1) });
        view.setTags(tags);
        std::set<QRgb> colours;
        for (const TrendView::TrendTag &t : tags)
            colours.insert(view.colourOf(t.id).rgb());
        QCOMPARE(int(colours.size()), tags.size());
    }

    // The poll refreshes the table many times while a value is typed; what
    // goes to the drive is what was typed, after the user said yes.
    void typingWhilePollingWritesWhatWasTyped_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("confirm");
        QTest::addColumn<QString>("failure"); // empty: written and read back as typed
        QTest::newRow("three digits, slower than the poll")
            << QString("HR402") << QString("300") << true << QString();
        QTest::newRow("cancelled: nothing sent") << QString("HR402") << QString("77") << false << QString();
        // The motor takes its alarm reset at once: the read-back differs.
        QTest::newRow("the drive holds another value after the write")
            << QString("HR406") << QString("1") << true << QString("written, but the drive reads back 0");
    }
    void typingWhilePollingWritesWhatWasTyped()
    {
        QFETCH(QString, tag);
        QFETCH(QString, typed);
        QFETCH(bool, confirm);
        QFETCH(QString, failure);
        typeInto(spinNamed("interval"), 100);
        if (rowOf(tag) < 0)
            QVERIFY(window->addTagLine(tag));
        QTRY_VERIFY_WITH_TIMEOUT(!valueOf(tag).isEmpty(), waitMs);
        const QString before = valueOf(tag);
        const int id = window->tags()->idAt(rowOf(tag));
        QTableView *view = window->tagView();
        const QPoint at = view->visualRect(window->tags()->index(rowOf(tag), TagModel::ValueColumn)).center();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, at);
        QLineEdit *editor = openEditor();
        QVERIFY(editor);
        QCOMPARE(editor->text(), before);
        QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(editor, Qt::Key_Delete);
        QSignalSpy shown(window, &MainWindow::readingShown);
        for (const QChar c : typed) {
            QTest::keyClick(editor, c.toLatin1());
            QTest::qWait(350); // several polls between two keys
        }
        const int refreshes = readingsIn(shown, id, false);
        QVERIFY2(refreshes >= typed.size(), qPrintable(QString::number(refreshes)));
        QCOMPARE(editor->text(), typed);

        QSignalSpy written(window, &MainWindow::writeFinished);
        QTest::keyClick(editor, Qt::Key_Return);
        QMessageBox *box = confirmation();
        QVERIFY(box);
        QVERIFY2(box->text().contains(tag + " at station 1"), qPrintable(box->text()));
        QVERIFY2(box->text().contains("now:\t" + before + "\n"), qPrintable(box->text()));
        QVERIFY2(box->text().contains("new:\t" + typed + "\n"), qPrintable(box->text()));
        QTest::qWait(300); // the poll goes on while the question is read
        if (!confirm) {
            QTest::keyClick(box, Qt::Key_Escape);
            QTest::qWait(500);
            QCOMPARE(written.count(), 0);
            QCOMPARE(valueOf(tag), before);
            return;
        }
        QTest::mouseClick(box->button(QMessageBox::Yes), Qt::LeftButton);
        QVERIFY(written.wait(waitMs));
        QCOMPARE(written.first().at(2).toString(), failure);
        QCOMPARE(written.first().at(1).toBool(), failure.isEmpty());
        if (!failure.isEmpty())
            return;
        // Read back from the drive by the next polls, not taken from the editor.
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(tag), typed, waitMs);
    }

    // The time shown is when the answer came, not when the command began.
    void timeIsWhenTheAnswerCame()
    {
        QCOMPARE(injectFault("late:at=HR103,ms=300"), QString());
        QVERIFY(window->addTagLine("HR103"));
        const int id = window->tags()->idAt(rowOf("HR103"));
        Reading got;
        qint64 seenMs = 0;
        const QMetaObject::Connection c
            = connect(window, &MainWindow::readingShown, this, [&](const Reading &r) {
                  if (r.id == id && r.ok && !seenMs) {
                      got = r;
                      seenMs = QDateTime::currentMSecsSinceEpoch();
                  }
              });
        QTRY_VERIFY_WITH_TIMEOUT(seenMs != 0, waitMs);
        disconnect(c);
        // The command began no later than its latency before the window saw it.
        const qint64 beganBy = seenMs - got.latencyNs / 1000000;
        QVERIFY2(got.timeMs >= beganBy + 300 - 100,
            qPrintable(QString("stamped %1 ms after the start").arg(got.timeMs - beganBy)));
        QVERIFY(window->tags()->removeRows(rowOf("HR103"), 1));
    }

    // Trended tags go away while the poll draws them.
    void trendedTagsGoWhilePolling()
    {
        TagModel *m = window->tags();
        TrendView *trends = window->trends();
        QString error;
        const QString saved = dir.filePath("before.tags");
        QVERIFY2(window->saveTags(saved, error), qPrintable(error));
        for (const char *t : { "IR401", "IR402", "IR403" })
            QVERIFY(window->addTagLine(t));
        QTRY_VERIFY_WITH_TIMEOUT(trends->samples(m->idAt(rowOf("IR403"))) >= 2, waitMs);
        const int removed = m->idAt(rowOf("IR401"));
        window->tagView()->setCurrentIndex(m->index(rowOf("IR401"), TagModel::TagColumn));
        QTest::mouseClick(buttonNamed(window, "Remove"), Qt::LeftButton);
        QCOMPARE(rowOf("IR401"), -1);
        QCOMPARE(trends->samples(removed), 0);
        const int unticked = m->idAt(rowOf("IR402"));
        QVERIFY(m->setData(m->index(rowOf("IR402"), TagModel::TagColumn), Qt::Unchecked, Qt::CheckStateRole));
        QCOMPARE(trends->samples(unticked), 0);
        QTest::qWait(300);
        const QString other = dir.filePath("other.tags");
        QVERIFY(writeFile(other, "IR403\nIR404\n"));
        QVERIFY2(window->loadTags(other, error), qPrintable(error));
        QTRY_VERIFY_WITH_TIMEOUT(trends->samples(m->idAt(rowOf("IR404"))) >= 2, waitMs);
        QVERIFY2(window->loadTags(saved, error), qPrintable(error));
        QTRY_VERIFY_WITH_TIMEOUT(!valueOf("HR100").isEmpty(), waitMs);
        trends->refresh();
    }

    void anotherStationStartsAfresh()
    {
        // HR100 is 1234 at station 1 (written above) and 1500 at station 2.
        TagModel *m = window->tags();
        const int row = rowOf("HR100");
        const int id = m->idAt(row);
        QVERIFY(window->trends()->samples(id) > 0);
        QVERIFY(m->setData(m->index(row, TagModel::StationColumn), "2", Qt::EditRole));
        // Nothing of station 1 is left to be taken for station 2's.
        QCOMPARE(valueOf("HR100"), QString());
        QCOMPARE(window->trends()->samples(id), 0);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR100"), QString("1500"), waitMs);
        QVERIFY(m->setData(m->index(row, TagModel::StationColumn), "0", Qt::EditRole));
        QTRY_COMPARE_WITH_TIMEOUT(valueOf("HR100"), QString("1234"), waitMs);
    }

    void injectedFaultsInTraffic()
    {
        TrafficView *traffic = window->traffic();
        // Refused with the rule parser's sentence.
        QVERIFY(injectFault("explode").startsWith("unknown fault"));
        const uint64_t before = traffic->health(1).timeOuts;
        QCOMPARE(injectFault("noreply:station=1,times=1"), QString());
        QTRY_VERIFY_WITH_TIMEOUT(traffic->health(1).timeOuts == before + 1, waitMs);
        QVERIFY(traffic->health(1).retries >= 1);

        // The time-out is in the trace, and the filters find it.
        TraceFilter *filter = traffic->filter();
        filter->setDirection(TraceFilter::Problems);
        bool timeOut = false;
        for (int r = 0; r < filter->rowCount(); ++r) {
            const TraceEvent &e = traffic->model()->event(filter->mapToSource(filter->index(r, 0)).row());
            QVERIFY(e.kind != TraceEvent::Kind::Sent || !e.note.empty());
            timeOut = timeOut || (e.kind == TraceEvent::Kind::TimeOut && e.station == 1);
        }
        QVERIFY(timeOut);
        filter->setStation(2); // nothing polls station 2
        QCOMPARE(filter->rowCount(), 0);
        filter->setStation(0);
        filter->setDirection(TraceFilter::All);
        QVERIFY(filter->rowCount() > 0);
    }

    void failedReadIsNotShownAsGood()
    {
        QCOMPARE(injectFault("exception:at=HR101,code=2"), QString());
        TagModel *m = window->tags();
        const int row = rowOf("HR101:hex");
        QTRY_VERIFY_WITH_TIMEOUT(
            m->index(row, TagModel::ErrorColumn).data().toString().contains("exception"), waitMs);
        QTRY_VERIFY_WITH_TIMEOUT(window->traffic()->health(1).exceptions >= 1, waitMs);
        // The last good value stays, greyed, and says that it is old.
        const QModelIndex value = m->index(row, TagModel::ValueColumn);
        QCOMPARE(value.data().toString(), QString("0x012C"));
        QCOMPARE(value.data(Qt::ForegroundRole).value<QBrush>().color(), QColor(Qt::gray));
        QVERIFY(value.data(Qt::ToolTipRole).toString().startsWith("the last read failed"));
        // The other tags are still good.
        QCOMPARE(m->index(rowOf("IR1:hex"), TagModel::ErrorColumn).data().toString(), QString());
    }

    // A station shown as answering answered.
    void scanFindsStations_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<QString>("probe");
        QTest::addColumn<int>("answering");
        QTest::newRow("the simulated drive's stations") << 1 << 5 << "HR1" << 3;
        QTest::newRow("the driver's own registers: nobody is asked") << 200 << 247 << "HR60000" << 0;
    }
    void scanFindsStations()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(QString, probe);
        QFETCH(int, answering);
        ScanView *scan = window->scanner();
        const QList<QSpinBox *> range = scan->findChildren<QSpinBox *>();
        QCOMPARE(range.size(), 2);
        range[0]->setValue(from);
        range[1]->setValue(to);
        scan->findChild<QLineEdit *>()->setText(probe);
        window->showMessage(QString());
        QTest::mouseClick(buttonNamed(scan, "Start scan"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!scan->running(), waitMs);
        QTableWidget *found = scan->results();
        QCOMPARE(found->rowCount(), answering); // the simulated drive serves 1, 2 and 3
        for (int r = 0; r < answering; ++r) {
            QCOMPARE(found->item(r, 0)->text(), QString::number(r + 1));
            QCOMPARE(found->item(r, 1)->text(), QString("answers"));
        }
        if (!answering) // and the user is told why
            QVERIFY2(window->messageText().contains(probe), qPrintable(window->messageText()));
    }

    // A backup, a compare with an edited copy, and its restore: written only
    // after the user agreed, then read back.
    void parametersBackupCompareRestore()
    {
        const QString mapPath = dir.filePath("drive.csv");
        QVERIFY(writeFile(mapPath,
            "name,address,scale,unit,min,max,access,values\n"
            "control-mode,HR1,,,0,2,rw,0=position;1=speed;2=torque\n"
            "accel-ramp,HR10,0.1,s,0,100,rw,\n"
            "bus-voltage,IR3,,V,,,r,\n"));
        QString error;
        QVERIFY2(window->openMap(mapPath, error), qPrintable(error));
        ParamView *view = window->parameters();
        const QString saved = dir.filePath("backup.csv"), edited = dir.filePath("edited.csv");
        QVERIFY(view->backup(saved));
        QTRY_VERIFY_WITH_TIMEOUT(!view->busy(), waitMs);
        QVERIFY2(view->summary().startsWith("3 parameters of station 1 saved"), qPrintable(view->summary()));
        ParameterMap backup;
        std::string e;
        QVERIFY2(loadParameterMap(saved.toStdString(), backup, e), e.c_str());
        QCOMPARE(backup.find("bus-voltage")->backup.at("value"), std::string("311"));
        const_cast<Parameter *>(backup.find("accel-ramp"))->backup["value"] = "2.5";
        QVERIFY(writeFile(edited, QByteArray::fromStdString(parameterMapCsv(backup))));

        QTableWidget *table = view->results();
        QVERIFY(view->compare(edited));
        QTRY_VERIFY_WITH_TIMEOUT(!view->busy(), waitMs);
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(
            table->item(0, 0)->text() + " " + table->item(0, 2)->text() + " " + table->item(0, 3)->text(),
            QString("accel-ramp 2.5 s"));

        QVERIFY(view->restore(edited));
        QMessageBox *box = nullptr;
        QTRY_VERIFY_WITH_TIMEOUT((box = view->findChild<QMessageBox *>("restoreConfirmation")), waitMs);
        QCOMPARE(table->rowCount(), 1); // the plan, before anything is written
        QTest::mouseClick(box->button(QMessageBox::Yes), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(view->summary().contains("written and read back"), waitMs);
        QCOMPARE(view->summary(), QString("1 of 1 parameters written and read back as written"));
        QVERIFY(view->compare(edited));
        QTRY_VERIFY_WITH_TIMEOUT(!view->busy(), waitMs);
        QCOMPARE(table->rowCount(), 0);
    }

    void layoutAtDefaultSize()
    {
        // The last error is in view at the window's first size.
        QTableView *view = window->tagView();
        const int x = view->columnViewportPosition(TagModel::ErrorColumn);
        QVERIFY2(x >= 0 && x + 100 <= view->viewport()->width(),
            qPrintable(QString("at %1 of %2").arg(x).arg(view->viewport()->width())));
        // A long message leaves the statistics in view.
        window->showMessage("write to HR100 failed: " + QString(200, 'x'));
        QTest::qWait(600);
        QVERIFY(!window->statusText().isEmpty());
        QList<QLabel *> shown;
        for (QLabel *l : window->statusBar()->findChildren<QLabel *>())
            if (l->isVisible() && !l->text().isEmpty())
                shown << l;
        QVERIFY(shown.size() >= 3); // the message, the statistics, the line
        for (int i = 0; i < shown.size(); ++i)
            for (int j = i + 1; j < shown.size(); ++j)
                QVERIFY(!shown[i]->geometry().intersects(shown[j]->geometry()));
    }

    void typedPortPath()
    {
        auto *port = window->findChild<QComboBox *>("port");
        QVERIFY(port && port->lineEdit());
        const QString path = "/dev/serial/by-id/no-such-adapter";
        port->lineEdit()->selectAll();
        QTest::keyClicks(port->lineEdit(), path);
        QSignalSpy failed(window, &MainWindow::connectFailed);
        QVERIFY(!reconnect());
        QVERIFY(failed.count() == 1 || failed.wait(waitMs));
        QVERIFY2(failed.first().at(0).toString().startsWith("cannot open " + path),
            qPrintable(failed.first().at(0).toString()));
        window->setPort(QString());
        QSignalSpy connected(window, &MainWindow::connectionChanged);
        window->connectLine();
        QVERIFY(connected.wait(waitMs) && connected.last().at(0).toBool());
    }

    // A station that does not answer among live ones.
    void silentStationDoesNotStallTheOthers()
    {
        typeInto(spinNamed("timeout"), 100);
        typeInto(spinNamed("retry"), 2);
        typeInto(spinNamed("interval"), 100);
        QVERIFY(reconnect());
        QVERIFY(window->addTagLine("IR5"));
        const int live = window->tags()->idAt(rowOf("IR5"));
        QTRY_VERIFY_WITH_TIMEOUT(!valueOf("IR5").isEmpty(), waitMs);
        const int alone = readingsOf(live, 2000);
        QVERIFY(window->addTagLine("HR110 station=9")); // the simulated drive serves 1 to 3
        const QModelIndex error = window->tags()->index(rowOf("HR110"), TagModel::ErrorColumn);
        QTRY_VERIFY_WITH_TIMEOUT(
            error.data().toString().startsWith("station 9 does not answer; read every 10th cycle"), waitMs);
        const int withSilent = readingsOf(live, 2000);
        QVERIFY2(withSilent * 10 >= alone * 6,
            qPrintable(QString("%1 reads, %2 alone").arg(withSilent).arg(alone)));
        QTRY_VERIFY_WITH_TIMEOUT(window->statusText().contains("station 9 silent"), waitMs);
    }

    // Listen only: the window opens the port and sends nothing; the test
    // plays master and drive on the other side of a pseudo-terminal, then
    // pulls it away.
    void listenOnlyShowsTheBusAndSendsNothing()
    {
        const int bus = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        QVERIFY(bus >= 0 && grantpt(bus) == 0 && unlockpt(bus) == 0);
        QSignalSpy changed(window, &MainWindow::connectionChanged);
        window->disconnectLine();
        QVERIFY(changed.wait(waitMs));
        window->traffic()->clear(); // the simulated drive's frames before
        window->findChild<QCheckBox *>("listenOnly")->setChecked(true);
        window->setPort(QString::fromLatin1(ptsname(bus)));
        window->connectLine();
        QVERIFY(changed.last().at(0).toBool());
        const QByteArray request = QByteArray::fromHex("010300000001840A"),
                         reply = QByteArray::fromHex("01030200023985");
        QCOMPARE(::write(bus, request.constData(), size_t(request.size())), ssize_t(request.size()));
        QTest::qWait(20);
        QCOMPARE(::write(bus, reply.constData(), size_t(reply.size())), ssize_t(reply.size()));
        TraceModel *trace = window->traffic()->model();
        auto shown = [&](TraceEvent::Kind kind, const QByteArray &bytes) {
            for (int r = 0; r < trace->rowCount(); ++r) {
                const TraceEvent &e = trace->event(r);
                if (e.kind == kind && e.bytes == bytes.toStdString() && e.station == 1
                    && (kind == TraceEvent::Kind::Sent || e.sinceRequestNs >= 0))
                    return true;
            }
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(shown(TraceEvent::Kind::Received, reply), waitMs);
        QVERIFY(shown(TraceEvent::Kind::Sent, request));
        QTRY_COMPARE_WITH_TIMEOUT(window->traffic()->health(1).requests, uint64_t(1), waitMs);
        char sent[16];
        QCOMPARE(::read(bus, sent, sizeof sent), ssize_t(-1)); // nothing came from the window
        ::close(bus);
        QTRY_VERIFY_WITH_TIMEOUT(!changed.last().at(0).toBool(), waitMs);
        window->findChild<QCheckBox *>("listenOnly")->setChecked(false);
        window->setPort(QString());
        window->connectLine();
        QVERIFY(changed.wait(waitMs) && changed.last().at(0).toBool());
    }

    void screenshotIsNotBlank()
    {
        const QString tags = dir.filePath("shot.tags");
        QVERIFY(writeFile(tags, "HR100\nIR1\nHR101:hex\n"));
        const QString png = dir.filePath("shot.png");
        QProcess p;
        p.start(TECO_MONITOR_PATH, { "--screenshot", png, "--tags", tags, "--seconds", "3" });
        QVERIFY(p.waitForFinished(120000));
        const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
        QVERIFY2(p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0,
            qPrintable(out + QString::fromLocal8Bit(p.readAllStandardError())));
        const QRegularExpressionMatch m = QRegularExpression("3 tags, (\\d+) points plotted").match(out);
        QVERIFY2(m.hasMatch() && m.captured(1).toInt() >= 3, qPrintable(out));
        const QImage image(png);
        QVERIFY(image.width() >= 800 && image.height() >= 600);
        std::set<QRgb> colours;
        for (int y = 0; y < image.height(); y += 2)
            for (int x = 0; x < image.width(); x += 2)
                colours.insert(image.pixel(x, y));
        QVERIFY2(colours.size() > 64, qPrintable(QString::number(colours.size())));
    }
};

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    MonitorTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_monitor.moc"
