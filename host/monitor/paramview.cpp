#include "paramview.h"

#include "tagvalues.h"

#include <QAbstractButton>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

QString text(const std::string &s) { return QString::fromStdString(s); }

QString nameOf(const Parameter *p) { return p ? text(p->name) : QString(); }

QString unitOf(const Parameter *p) { return p ? text(p->unit) : QString(); }

QStringList heading(const char *drive, const char *file)
{
    return { "Parameter", drive, file, "Unit", "Note" };
}

} // namespace

ParamView::ParamView(QWidget *parent)
    : QWidget(parent)
{
    backupButton = new QPushButton("Backup...");
    backupButton->setToolTip("read every readable parameter of the map and save them to a file");
    compareButton = new QPushButton("Compare...");
    compareButton->setToolTip("read the drive's values of a backup's parameters and list the differences");
    restoreButton = new QPushButton("Restore...");
    restoreButton->setToolTip("write a backup's values that the drive does not hold, after showing them");
    auto *buttons = new QHBoxLayout;
    for (QPushButton *b : { backupButton, compareButton, restoreButton })
        buttons->addWidget(b);
    buttons->addStretch();
    table = new QTableWidget(0, 5);
    table->setHorizontalHeaderLabels(heading("Drive", "File"));
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setStretchLastSection(true);
    summaryLabel = new QLabel("Backup, compare or restore the parameters of the map (File > Open map...).");
    summaryLabel->setWordWrap(true);
    summaryLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(buttons);
    layout->addWidget(summaryLabel);
    layout->addWidget(table, 1);
    connect(backupButton, &QPushButton::clicked, this, [this] { choose(ParamJob::Backup); });
    connect(compareButton, &QPushButton::clicked, this, [this] { choose(ParamJob::Compare); });
    connect(restoreButton, &QPushButton::clicked, this, [this] { choose(ParamJob::Restore); });
    setRunning(false);
}

void ParamView::setMap(std::shared_ptr<const ParameterMap> m) { map = std::move(m); }

void ParamView::setConnected(bool on)
{
    connected = on;
    ++connection;
    setRunning(running);
}

void ParamView::setRunning(bool on)
{
    running = on;
    for (QPushButton *b : { backupButton, compareButton, restoreButton })
        b->setEnabled(connected && !running);
}

QString ParamView::summary() const { return summaryLabel->text(); }

void ParamView::say(const QString &t)
{
    summaryLabel->setText(t);
    emit message(t);
}

void ParamView::choose(ParamJob::Kind kind)
{
    const QString filter = "Parameter files (*.csv);;All files (*)";
    const QString path = kind == ParamJob::Backup
        ? QFileDialog::getSaveFileName(this, "Back up parameters", "parameters.csv", filter)
        : QFileDialog::getOpenFileName(
            this, kind == ParamJob::Compare ? "Compare with" : "Restore", QString(), filter);
    if (!path.isEmpty())
        start(kind, path);
}

bool ParamView::backup(const QString &path) { return start(ParamJob::Backup, path); }

bool ParamView::compare(const QString &path) { return start(ParamJob::Compare, path); }

bool ParamView::restore(const QString &path) { return start(ParamJob::Restore, path); }

bool ParamView::start(ParamJob::Kind kind, const QString &path)
{
    ParamJob job;
    job.kind = kind;
    job.path = path;
    QString why = running ? "a parameter job is under way" : !connected ? "not connected" : QString();
    if (why.isEmpty() && kind == ParamJob::Backup) {
        job.map = map;
        if (!map)
            why = "no map to back up: open one with File > Open map...";
    } else if (why.isEmpty()) {
        auto file = std::make_shared<ParameterMap>();
        std::string error;
        if (!loadParameterMap(path.toStdString(), *file, error))
            why = text(error);
        job.map = file;
    }
    if (!why.isEmpty()) {
        say(why);
        return false;
    }
    setRunning(true);
    say("reading the drive's parameters...");
    emit readRequested(job);
    return true;
}

void ParamView::paramsRead(const ParamJob &job)
{
    setRunning(false);
    if (!job.error.isEmpty()) {
        say("nothing read: " + job.error);
        return;
    }
    if (job.kind == ParamJob::Backup)
        finishBackup(job);
    else if (job.kind == ParamJob::Compare)
        showDifferences(job);
    else
        askRestore(job);
}

void ParamView::showRows(const QStringList &head, const QVector<QStringList> &rows, const QString &text)
{
    table->clearContents();
    table->setRowCount(rows.size());
    table->setHorizontalHeaderLabels(head);
    for (int r = 0; r < rows.size(); ++r)
        for (int c = 0; c < rows[r].size() && c < table->columnCount(); ++c)
            table->setItem(r, c, new QTableWidgetItem(rows[r][c]));
    table->resizeColumnsToContents();
    say(text);
}

void ParamView::finishBackup(const ParamJob &job)
{
    QVector<QStringList> rows;
    int failed = 0;
    for (const ParamReading &r : job.readings) {
        rows.push_back({ nameOf(r.param), r.ok ? text(r.value) : QString(), QString(), unitOf(r.param),
            r.ok ? QString() : text(r.error) });
        failed += r.ok ? 0 : 1;
    }
    const ParameterMap saved
        = backupMap(*job.map, job.readings, job.station, job.driverVersion.toStdString());
    std::string error;
    QString outcome;
    if (!saveTextFile(job.path.toStdString(), parameterMapCsv(saved), error))
        outcome = "backup not saved: " + text(error);
    else
        outcome = QString("%1 parameters of station %2 saved to %3")
                      .arg(int(job.readings.size()) - failed)
                      .arg(job.station)
                      .arg(job.path);
    if (failed)
        outcome += QString("; %1 could not be read and are left out").arg(failed);
    showRows(heading("Drive", ""), rows, outcome);
}

void ParamView::showDifferences(const ParamJob &job)
{
    QVector<QStringList> rows;
    for (const ParamDifference &d : compareWithFile(job.readings, *job.map))
        rows.push_back({ nameOf(d.param), text(d.left), text(d.right), unitOf(d.param), QString() });
    const QString file = QFileInfo(job.path).fileName();
    showRows(heading("Drive", "File"), rows,
        rows.isEmpty() ? QString("station %1 holds every value of %2").arg(job.station).arg(file)
                       : QString("%1 parameter%2 of station %3 differ from %4")
                             .arg(rows.size())
                             .arg(rows.size() == 1 ? "" : "s")
                             .arg(job.station)
                             .arg(file));
}

void ParamView::askRestore(const ParamJob &read)
{
    ParamJob job = read;
    std::string error;
    if (!planRestore(job.readings, *job.map, job.writes, error)) {
        say("nothing written: " + text(error));
        return;
    }
    QVector<QStringList> rows;
    for (const ParamWrite &w : job.writes)
        rows.push_back({ nameOf(w.param), text(w.from), text(w.to), unitOf(w.param), "raw " + text(w.raw) });
    const QString file = QFileInfo(job.path).fileName();
    if (rows.isEmpty()) {
        showRows(heading("Drive", "File"), rows,
            QString("station %1 holds every value of %2: nothing to write").arg(job.station).arg(file));
        return;
    }
    showRows(heading("Drive", "File"), rows,
        QString("%1 parameter%2 to write to station %3 from %4")
            .arg(rows.size())
            .arg(rows.size() == 1 ? "" : "s")
            .arg(job.station)
            .arg(file));
    auto *box = new QMessageBox(QMessageBox::Question, "Restore",
        QString("Write the %1 values listed to station %2?").arg(rows.size()).arg(job.station),
        QMessageBox::Yes | QMessageBox::Cancel, this);
    box->setObjectName("restoreConfirmation");
    box->button(QMessageBox::Yes)->setText("Write");
    box->setAttribute(Qt::WA_DeleteOnClose);
    const int asked = connection;
    connect(box, &QMessageBox::buttonClicked, this, [this, box, job, asked](QAbstractButton *b) {
        if (box->standardButton(b) != QMessageBox::Yes || running || asked != connection) {
            say(box->standardButton(b) != QMessageBox::Yes ? "restore cancelled: nothing written"
                    : running ? "nothing written: another parameter job is under way"
                              : "nothing written: the connection changed since the drive was read");
            return;
        }
        setRunning(true);
        say("writing...");
        emit restoreRequested(job);
    });
    box->open();
}

// Why a planned write does not hold (empty when it does), and the value read back.
static QString restoreTrouble(
    const ParamWrite &w, const std::vector<RestoreOutcome> &outcomes, QString &readBack)
{
    for (const RestoreOutcome &o : outcomes) {
        if (o.param != w.param)
            continue;
        readBack = text(o.readBack);
        if (!o.written)
            return "not written: " + text(o.error);
        if (!o.error.empty())
            return "written, but the read-back failed: " + text(o.error);
        return o.holds ? QString() : "written, but the drive reads back " + readBack;
    }
    return "not written: the restore stopped at a failed write";
}

void ParamView::paramsRestored(const ParamJob &job)
{
    setRunning(false);
    if (!job.error.isEmpty()) {
        say("nothing written: " + job.error);
        return;
    }
    QVector<QStringList> rows;
    for (const ParamWrite &w : job.writes) {
        QString readBack;
        const QString trouble = restoreTrouble(w, job.outcomes, readBack);
        if (!trouble.isEmpty())
            rows.push_back({ nameOf(w.param), readBack, text(w.to), unitOf(w.param), trouble });
    }
    const int holding = int(job.writes.size()) - rows.size();
    showRows(heading("Drive", "File"), rows,
        QString("%1 of %2 parameters written and read back as written%3")
            .arg(holding)
            .arg(job.writes.size())
            .arg(rows.isEmpty() ? QString() : QString("; the %1 listed do not hold").arg(rows.size())));
}
