#include "mainwindow.h"

#include "parammap.h"
#include "paramview.h"
#include "registermap.h"
#include "scanview.h"
#include "tagmodel.h"
#include "trafficlistener.h"
#include "trafficview.h"
#include "trendview.h"
#include "worker.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QAbstractButton>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSerialPortInfo>
#include <QSpinBox>
#include <QSplitter>
#include <QStatusBar>
#include <QStyledItemDelegate>
#include <QTabWidget>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

#include <set>

namespace {

const char *const notPolled = "not polled: polling is off";

// Editors of the tag table: a station from 0 (the connection's) to 247, a
// format from the list; values as typed. An editor is filled once, when it
// opens: the poll's updates of the model never touch what is being typed.
// A value typed goes to the model as a write to confirm.
class TagDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    QWidget *createEditor(
        QWidget *parent, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        if (index.column() == TagModel::StationColumn) {
            auto *s = new QSpinBox(parent);
            s->setRange(0, 247);
            s->setSpecialValueText("link");
            return s;
        }
        if (index.column() == TagModel::FormatColumn) {
            // Editable, for a word order: "int32:ABCD".
            auto *c = new QComboBox(parent);
            c->setEditable(true);
            for (const std::string &f : formatChoices())
                c->addItem(f.empty() ? "none" : QString::fromStdString(f));
            return c;
        }
        return QStyledItemDelegate::createEditor(parent, option, index);
    }
    void setEditorData(QWidget *editor, const QModelIndex &index) const override
    {
        if (editor->property("filled").toBool())
            return;
        editor->setProperty("filled", true);
        if (auto *c = qobject_cast<QComboBox *>(editor)) {
            const QString f = index.data(Qt::EditRole).toString();
            c->setCurrentText(f.isEmpty() ? "none" : f);
        } else
            QStyledItemDelegate::setEditorData(editor, index);
    }
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override
    {
        if (auto *c = qobject_cast<QComboBox *>(editor))
            model->setData(index, c->currentText() == "none" ? QString() : c->currentText(), Qt::EditRole);
        else if (auto *s = qobject_cast<QSpinBox *>(editor))
            model->setData(index, QString::number(s->value()), Qt::EditRole);
        else if (auto *e = qobject_cast<QLineEdit *>(editor); e && index.column() == TagModel::ValueColumn)
            model->setData(index, e->text(), TagModel::ConfirmWriteRole);
        else
            QStyledItemDelegate::setModelData(editor, model, index);
    }
};

QSpinBox *spin(int low, int high, const QString &suffix = QString())
{
    auto *s = new QSpinBox;
    s->setRange(low, high);
    s->setSuffix(suffix);
    return s;
}

} // namespace

MainWindow::MainWindow(const QString &pluginPath, QWidget *parent)
    : QMainWindow(parent)
    , worker(new MonitorWorker)
{
    registerMonitorTypes();
    qRegisterMetaType<PendingWrite>();
    setWindowTitle("teco-monitor");
    worker->moveToThread(&thread);
    connect(&thread, &QThread::finished, worker, &QObject::deleteLater);

    tagModel = new TagModel(this);
    trendView = new TrendView;
    trafficView = new TrafficView;
    listener = new TrafficListener(this);
    scanView = new ScanView;
    paramView = new ParamView;
    tabWidget = new QTabWidget;
    tabWidget->addTab(trendView, "Trends");
    tabWidget->addTab(trafficView, "Traffic");
    tabWidget->addTab(scanView, "Scan");
    tabWidget->addTab(paramView, "Parameters");

    auto *left = new QWidget;
    auto *leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(makeConnectionPanel());
    leftLayout->addWidget(makeTagPanel(), 1);
    auto *split = new QSplitter(Qt::Horizontal);
    split->addWidget(left);
    split->addWidget(tabWidget);
    split->setStretchFactor(0, 2);
    split->setStretchFactor(1, 3);
    setCentralWidget(split);

    makeStatusBar();
    makeMenu();
    connectWorker();
    chooseMap(); // the simulated drive's, to start with

    auto *statusTimer = new QTimer(this);
    connect(statusTimer, &QTimer::timeout, this, &MainWindow::updateStatus);
    statusTimer->start(500);

    thread.start();
    emit requestLoad(pluginPath);
    resize(1440, 860);
    // The tag table's columns, "Last error" included, fit at this size.
    const int tableSide = std::min(tableWidth() + 40, 980);
    split->setSizes({ tableSide, 1440 - tableSide });
}

void MainWindow::makeStatusBar()
{
    // Messages to the left, cut short (the whole text in the tooltip); the
    // statistics and the line to the right, never covered by a message.
    messageLabel = new QLabel;
    messageLabel->setTextFormat(Qt::PlainText);
    messageLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    messageTimer = new QTimer(this);
    messageTimer->setSingleShot(true);
    connect(messageTimer, &QTimer::timeout, messageLabel, &QLabel::clear);
    lineLabel = new QLabel("not connected");
    statsLabel = new QLabel;
    statusBar()->addWidget(messageLabel, 1);
    statusBar()->addPermanentWidget(statsLabel);
    statusBar()->addPermanentWidget(lineLabel);
}

void MainWindow::connectWorker()
{
    // Window to worker: queued, as the worker lives on its own thread.
    connect(this, &MainWindow::requestLoad, worker, &MonitorWorker::loadDriver);
    connect(this, &MainWindow::requestOpen, worker, &MonitorWorker::open);
    connect(this, &MainWindow::requestClose, worker, &MonitorWorker::close);
    connect(this, &MainWindow::requestTags, worker, &MonitorWorker::setTags);
    connect(this, &MainWindow::requestPolling, worker, &MonitorWorker::setPolling);
    connect(this, &MainWindow::requestMergeGap, worker, &MonitorWorker::setMergeGap);
    connect(this, &MainWindow::requestWrite, worker, &MonitorWorker::write);
    connect(this, &MainWindow::requestScan, worker, &MonitorWorker::startScan);
    connect(this, &MainWindow::requestStopScan, worker, &MonitorWorker::stopScan);
    connect(this, &MainWindow::requestFault, worker, &MonitorWorker::addFault);
    // Worker to window.
    connect(worker, &MonitorWorker::driverLoaded, this, &MainWindow::driverLoaded);
    connect(worker, &MonitorWorker::opened, this, &MainWindow::opened);
    connect(worker, &MonitorWorker::closed, this, &MainWindow::closed);
    connect(worker, &MonitorWorker::reading, this, &MainWindow::applyReading);
    connect(worker, &MonitorWorker::cycleDone, this, [this](const CycleStatus &c) { cycleStatus = c; });
    connect(worker, &MonitorWorker::written, tagModel, &TagModel::applyWrite);
    connect(worker, &MonitorWorker::written, this, &MainWindow::writeFinished);
    connect(worker, &MonitorWorker::traffic, trafficView, &TrafficView::addEvents);
    connect(worker, &MonitorWorker::health, this, [this](const HealthMap &health) {
        if (!listener->listening()) // a closed line's last counts do not stand for the bus listened to
            trafficView->setHealth(health);
    });
    connect(listener, &TrafficListener::traffic, trafficView, &TrafficView::addEvents);
    connect(listener, &TrafficListener::health, trafficView, &TrafficView::setHealth);
    connect(listener, &TrafficListener::lost, this, [this](const QString &why) {
        closed();
        showMessage(why);
    });
    connect(worker, &MonitorWorker::scanProgress, scanView, &ScanView::progress);
    connect(worker, &MonitorWorker::scanFound, scanView, &ScanView::found);
    connect(worker, &MonitorWorker::scanFinished, scanView, &ScanView::finished);
    connect(paramView, &ParamView::readRequested, worker, &MonitorWorker::readParams);
    connect(paramView, &ParamView::restoreRequested, worker, &MonitorWorker::restoreParams);
    connect(worker, &MonitorWorker::paramsRead, paramView, &ParamView::paramsRead);
    connect(worker, &MonitorWorker::paramsRestored, paramView, &ParamView::paramsRestored);
    connect(paramView, &ParamView::message, this, &MainWindow::showMessage);
    connect(this, &MainWindow::connectionChanged, paramView, &ParamView::setConnected);
    connect(worker, &MonitorWorker::faultAdded, this, [this](bool ok, const QString &text) {
        showMessage(text);
        emit faultAnswered(ok, text);
    });

    connect(tagModel, &TagModel::tagsChanged, this, &MainWindow::sendTags);
    connect(tagModel, &TagModel::trendChanged, this, &MainWindow::updateTrendTags);
    connect(tagModel, &TagModel::writeRequested, this, &MainWindow::requestWrite);
    // Asked once the editor has closed, not from within its commit.
    connect(tagModel, &TagModel::writeToConfirm, this, &MainWindow::confirmWrite, Qt::QueuedConnection);
    connect(tagModel, &TagModel::message, this, &MainWindow::showMessage);
    connect(scanView, &ScanView::startRequested, this, &MainWindow::requestScan);
    connect(scanView, &ScanView::startRequested, this,
        [this] { tagModel->markAllStale("not polled while the scan holds the line"); });
    connect(scanView, &ScanView::stopRequested, this, &MainWindow::requestStopScan);
    connect(scanView, &ScanView::message, this, &MainWindow::showMessage);
    connect(trafficView, &TrafficView::faultRequested, this, &MainWindow::requestFault);
}

int MainWindow::tableWidth() const
{
    int width = tagTable->frameWidth() * 2 + 200; // room for the last error
    for (int c = 0; c < TagModel::ErrorColumn; ++c)
        width += tagTable->columnWidth(c);
    return width;
}

MainWindow::~MainWindow()
{
    thread.quit();
    thread.wait();
}

QWidget *MainWindow::makeConnectionPanel()
{
    auto *box = new QGroupBox("Connection");
    makeLineFields();
    auto *rescan = new QPushButton("Ports");
    listenBox = new QCheckBox("Listen only");
    listenBox->setObjectName("listenOnly");
    listenBox->setToolTip("open the port without sending: the Traffic tab shows the requests of another "
                          "master and the replies (Time-out: that master's)");
    rescan->setToolTip("look for serial ports again");
    QHBoxLayout *mapRow = makeSimFields();
    connectButton = new QPushButton("Connect");
    connectButton->setEnabled(false);
    auto *grid = new QGridLayout(box);
    layOutConnection(grid, rescan, mapRow);
    makePollFields(grid);

    refreshPorts();
    auto simOnly = [this] {
        const bool sim = chosenPort().isEmpty();
        simStations->setEnabled(sim);
        simFaults->setEnabled(sim);
        simMap->setEnabled(sim);
    };
    connect(port, &QComboBox::currentTextChanged, this, simOnly);
    connect(rescan, &QPushButton::clicked, this, &MainWindow::refreshPorts);
    connect(connectButton, &QPushButton::clicked, this, [this] {
        if (connected || connecting)
            disconnectLine();
        else
            connectLine();
    });
    return box;
}

void MainWindow::makeLineFields()
{
    port = new QComboBox;
    port->setObjectName("port");
    port->setEditable(true); // any path: /dev/pts/N, /dev/serial/by-id/...
    port->setInsertPolicy(QComboBox::NoInsert);
    port->setToolTip(
        "a serial port (choose one, or type its path), or the simulated drive on a pseudo-terminal");
    port->setMinimumContentsLength(16);
    linkText = new QLineEdit;
    linkText->setToolTip("interface, baud rate, parity, data bits, stop bits");
    station = spin(1, 247);
    timeout = spin(1, 60000, " ms");
    retry = spin(0, 10);
    timeout->setObjectName("timeout");
    retry->setObjectName("retry");
    delay = spin(0, 10000, " ms");
    lateGuard = spin(-1, 60000, " ms");
    lateGuard->setSpecialValueText("time-out");
    lateGuard->setToolTip("after a failed exchange, hold that station's next request back this long");
}

QHBoxLayout *MainWindow::makeSimFields()
{
    simStations = new QLineEdit("1,2,3");
    simStations->setToolTip("the stations the simulated drive serves, such as 1,2,5-7");
    simFaults = new QLineEdit;
    simFaults->setPlaceholderText("none");
    simFaults->setToolTip("faults for the simulated drive from the start, separated by \";\", "
                          "such as late:at=HR200,ms=800");
    simMap = new QLineEdit;
    simMap->setPlaceholderText("built-in");
    simMap->setToolTip(
        "the simulated drive's initial values and motor (teco-sim --print-map shows the form)");
    auto *browseMap = new QPushButton("...");
    browseMap->setToolTip("choose a map file");
    browseMap->setMaximumWidth(browseMap->fontMetrics().horizontalAdvance("...") + 24);
    connect(browseMap, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, "Map of the simulated drive");
        if (!path.isEmpty())
            simMap->setText(path);
    });
    auto *mapRow = new QHBoxLayout;
    mapRow->addWidget(simMap, 1);
    mapRow->addWidget(browseMap);
    return mapRow;
}

void MainWindow::layOutConnection(QGridLayout *grid, QPushButton *rescan, QHBoxLayout *mapRow)
{
    auto *portRow = new QHBoxLayout;
    portRow->addWidget(port, 1);
    portRow->addWidget(rescan);
    portRow->addWidget(listenBox);
    grid->addWidget(new QLabel("Port"), 0, 0);
    grid->addLayout(portRow, 0, 1, 1, 3);
    grid->addWidget(new QLabel("Link"), 1, 0);
    grid->addWidget(linkText, 1, 1, 1, 3);
    grid->addWidget(new QLabel("Station"), 2, 0);
    grid->addWidget(station, 2, 1);
    grid->addWidget(new QLabel("Time-out"), 2, 2);
    grid->addWidget(timeout, 2, 3);
    grid->addWidget(new QLabel("Retry"), 3, 0);
    grid->addWidget(retry, 3, 1);
    grid->addWidget(new QLabel("Delay"), 3, 2);
    grid->addWidget(delay, 3, 3);
    grid->addWidget(new QLabel("Late guard"), 4, 0);
    grid->addWidget(lateGuard, 4, 1);
    grid->addWidget(new QLabel("Sim stations"), 4, 2);
    grid->addWidget(simStations, 4, 3);
    grid->addWidget(new QLabel("Sim faults"), 5, 0);
    grid->addWidget(simFaults, 5, 1, 1, 3);
    grid->addWidget(new QLabel("Sim map"), 6, 0);
    grid->addLayout(mapRow, 6, 1, 1, 3);
}

void MainWindow::makePollFields(QGridLayout *grid)
{
    pollBox = new QCheckBox("Poll every");
    pollBox->setChecked(true);
    interval = spin(10, 3600000, " ms");
    interval->setValue(500);
    interval->setObjectName("interval");
    interval->setSingleStep(100);
    grid->addWidget(pollBox, 7, 0);
    grid->addWidget(interval, 7, 1);
    grid->addWidget(connectButton, 7, 2, 1, 2);
    // Tags of a station this close are read with one command.
    QSpinBox *mergeGap = spin(-1, 124, " registers apart");
    mergeGap->setSpecialValueText("each tag alone");
    mergeGap->setValue(defaultReadGap);
    mergeGap->setObjectName("mergeGap");
    mergeGap->setToolTip("Tags of one station at most this many registers apart are read with one command");
    grid->addWidget(new QLabel("Join tags"), 8, 0);
    grid->addWidget(mergeGap, 8, 1);
    connect(mergeGap, QOverload<int>::of(&QSpinBox::valueChanged), this, &MainWindow::requestMergeGap);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);
}

QStringList MainWindow::portChoices() const
{
    std::set<QString> found;
    for (const QSerialPortInfo &p : QSerialPortInfo::availablePorts())
        found.insert(p.systemLocation());
    for (const QString &name : QDir("/dev").entryList({ "ttyS*", "ttyUSB*", "ttyACM*" }, QDir::System))
        found.insert("/dev/" + name);
    QStringList out;
    for (const QString &p : found)
        out << p;
    // ttyS2 before ttyS10.
    std::sort(out.begin(), out.end(), [](const QString &a, const QString &b) {
        const int i = a.indexOf(QRegExp("[0-9]+$")), j = b.indexOf(QRegExp("[0-9]+$"));
        if (i < 0 || j < 0 || a.left(i) != b.left(j))
            return a < b;
        return a.mid(i).toInt() < b.mid(j).toInt();
    });
    return out;
}

void MainWindow::setSimFaults(const QStringList &rules) { simFaults->setText(rules.join("; ")); }

void MainWindow::setSimMap(const QString &path)
{
    simMap->setText(path);
    chooseMap();
}

QString MainWindow::chosenPort() const
{
    const QString text = port->currentText().trimmed();
    const int at = port->findText(text);
    return at >= 0 ? port->itemData(at).toString() : text; // a path typed
}

void MainWindow::setPort(const QString &path)
{
    const int at = path.isEmpty() ? 0 : port->findData(path);
    if (at >= 0)
        port->setCurrentIndex(at);
    else
        port->setEditText(path);
}

void MainWindow::refreshPorts()
{
    const QString current = port->count() ? chosenPort() : QString();
    port->clear();
    port->addItem("Simulated drive", QString());
    for (const QString &p : portChoices())
        port->addItem(p, p);
    setPort(current);
}

QWidget *MainWindow::makeTagPanel()
{
    auto *box = new QGroupBox("Tags");
    auto *layout = new QVBoxLayout(box);
    layout->addWidget(makeMapLabel());
    layout->addLayout(makeAddRow());
    makeTagTable();
    layout->addWidget(tagTable, 1);
    layout->addLayout(makeTagButtons());
    auto *hint = new QLabel("Double-click a value to write it; tick a tag to trend it.");
    hint->setStyleSheet("color: gray");
    layout->addWidget(hint);

    connect(pollBox, &QCheckBox::toggled, this, &MainWindow::sendPolling);
    connect(pollBox, &QCheckBox::toggled, this, [this](bool on) {
        if (!on)
            tagModel->markAllStale(notPolled);
    });
    connect(interval, QOverload<int>::of(&QSpinBox::valueChanged), this, &MainWindow::sendPolling);
    return box;
}

QHBoxLayout *MainWindow::makeAddRow()
{
    tagLine = new QLineEdit;
    tagLine->setPlaceholderText("speed-command, HR100, IR1:word:2, HR200:float32 station=2");
    tagLine->setToolTip(
        "a parameter's name of the map, or ADDRESS[:TYPE|FORMAT][:COUNT], as teco-cli's poll tags,\n"
        "then [station=N] [trend=off] [alarm];\n"
        "formats: int16, uint16, hex, binary, int32, uint32, float32, float64, string");
    auto *add = new QPushButton("Add");
    auto *addRow = new QHBoxLayout;
    addRow->addWidget(tagLine, 1);
    addRow->addWidget(add);
    auto addTyped = [this] {
        if (addTagLine(tagLine->text()))
            tagLine->clear();
    };
    connect(add, &QPushButton::clicked, this, addTyped);
    connect(tagLine, &QLineEdit::returnPressed, this, addTyped);
    return addRow;
}

void MainWindow::makeTagTable()
{
    tagTable = new QTableView;
    tagTable->setModel(tagModel);
    tagTable->setItemDelegate(new TagDelegate(tagTable));
    tagTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    tagTable->setSelectionMode(QAbstractItemView::SingleSelection);
    tagTable->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    tagTable->verticalHeader()->hide();
    tagTable->setWordWrap(false);
    tagTable->horizontalHeader()->setStretchLastSection(true);
    const QFontMetrics m = tagTable->fontMetrics();
    const std::pair<int, const char *> widths[]
        = { { TagModel::TagColumn, "speed-command:x" }, { TagModel::StationColumn, "Station" },
              { TagModel::TypeColumn, "2 words" }, { TagModel::FormatColumn, "int32:ABCD" },
              { TagModel::ValueColumn, "-2147483648 rpm" }, { TagModel::UpdatedColumn, "00:00:00.000" } };
    for (const auto &w : widths)
        tagTable->setColumnWidth(w.first, m.horizontalAdvance(w.second) + 14);
    tagTable->setColumnWidth(
        TagModel::TagColumn, tagTable->columnWidth(TagModel::TagColumn) + 22); // the tick
}

QHBoxLayout *MainWindow::makeTagButtons()
{
    auto *remove = new QPushButton("Remove");
    auto *up = new QPushButton("Up");
    auto *down = new QPushButton("Down");
    auto *load = new QPushButton("Load...");
    auto *save = new QPushButton("Save...");
    auto *buttons = new QHBoxLayout;
    for (QPushButton *b : { remove, up, down })
        buttons->addWidget(b);
    buttons->addStretch();
    buttons->addWidget(load);
    buttons->addWidget(save);
    connect(remove, &QPushButton::clicked, this, &MainWindow::removeSelected);
    connect(up, &QPushButton::clicked, this, [this] { moveSelected(-1); });
    connect(down, &QPushButton::clicked, this, [this] { moveSelected(1); });
    connect(load, &QPushButton::clicked, this, &MainWindow::chooseLoad);
    connect(save, &QPushButton::clicked, this, &MainWindow::chooseSave);
    return buttons;
}

void MainWindow::driverLoaded(bool ok, const QString &error, const DriverDefaults &d)
{
    driverOk = ok;
    emit driverReady(ok, error);
    if (!ok) {
        lineLabel->setText("no driver");
        showMessage(error);
        QMessageBox::critical(this, "teco-monitor", error);
        return;
    }
    linkText->setText(d.link);
    station->setValue(d.options.station);
    timeout->setValue(d.options.timeoutMs);
    retry->setValue(d.options.retry);
    delay->setValue(int(d.options.delayMs));
    lateGuard->setValue(d.options.lateGuardMs);
    connectButton->setEnabled(true);
    // The simulated drive is there on first start.
    if (chosenPort().isEmpty())
        connectLine();
}

void MainWindow::connectLine()
{
    if (!driverOk || connecting)
        return;
    ConnectSettings s;
    s.port = chosenPort();
    s.link = linkText->text().trimmed();
    s.options.station = station->value();
    s.options.timeoutMs = timeout->value();
    s.options.retry = retry->value();
    s.options.delayMs = (unsigned long)delay->value();
    s.options.lateGuardMs = lateGuard->value();
    s.simStations = simStations->text().trimmed();
    s.simMap = simMap->text().trimmed();
    for (const QString &f : simFaults->text().split(';', Qt::SkipEmptyParts))
        if (!f.trimmed().isEmpty())
            s.simFaults << f.trimmed();
    chooseMap();
    connectionAsked = s.port + '|' + s.link + '|' + QString::number(s.options.station) + '|' + s.simStations
        + '|' + s.simMap;
    connectedStation = s.options.station;
    connecting = true;
    connectButton->setText("Connecting...");
    lineLabel->setText("connecting");
    sendTags();
    sendPolling();
    if (listenBox->isChecked()) {
        QString error;
        const bool ok = listener->start(s.port, s.link, s.options.timeoutMs, error);
        opened(ok, ok ? s.port + ", listening only: nothing is sent" : error);
        return;
    }
    emit requestOpen(s);
}

void MainWindow::disconnectLine()
{
    if (!listener->listening()) {
        emit requestClose();
        return;
    }
    listener->stop();
    closed();
}

void MainWindow::opened(bool ok, const QString &message)
{
    connecting = false;
    connected = ok;
    if (ok && connectionAsked != connectionShown) {
        // Another drive (or another view of it) may stand behind the same tags.
        if (!connectionShown.isEmpty()) {
            tagModel->forgetAllValues();
            trendView->clearSamples();
        }
        connectionShown = connectionAsked;
    }
    connectButton->setText(ok ? "Disconnect" : "Connect");
    lineLabel->setText(ok ? message : "not connected");
    scanView->setConnected(ok);
    stats.clear();
    cycleStatus = CycleStatus();
    openedMs = QDateTime::currentMSecsSinceEpoch();
    showMessage(ok ? "connected" : "cannot connect: " + message);
    emit connectionChanged(ok, message);
    if (!ok)
        emit connectFailed(message);
}

void MainWindow::closed()
{
    tagModel->markAllStale("the line is closed");
    connected = connecting = false;
    connectButton->setText("Connect");
    lineLabel->setText("not connected");
    scanView->setConnected(false);
    showMessage("disconnected");
    emit connectionChanged(false, "disconnected");
}

void MainWindow::applyReading(const Reading &r)
{
    if (!tagModel->applyReading(r))
        return;
    if (!pollBox->isChecked()) // an answer to a poll under way when polling was switched off
        tagModel->markAllStale(notPolled);
    const int row = tagModel->rowOf(r.id);
    double value = 0;
    if (r.ok)
        stats.addSuccess(r.latencyNs);
    else
        stats.addFailure(classifyDriverError(r.error.toStdString()).text);
    if (r.ok && row >= 0 && tagModel->plotted(row, value))
        trendView->addSample(r.id, r.timeMs, value);
    else if (!r.ok || (row >= 0 && tagModel->tagAt(row).param)) // a read failed, or its value
        trendView->addGap(r.id, r.timeMs); // the line breaks: no value is drawn across a failed read
    emit readingShown(r);
}

bool MainWindow::addTagLine(const QString &line)
{
    QString error;
    if (!tagModel->addTag(line, error)) {
        showMessage(error);
        return false;
    }
    return true;
}

bool MainWindow::loadTags(const QString &path, QString &error)
{
    std::vector<MonitorTag> list;
    std::string e;
    if (!loadTagList(path.toStdString(), list, e, tagModel->parameterMap())) {
        error = QString::fromStdString(e);
        return false;
    }
    tagModel->setTags(list);
    showMessage(QString("%1 tags from %2").arg(list.size()).arg(path));
    return true;
}

bool MainWindow::saveTags(const QString &path, QString &error)
{
    std::string e;
    if (!saveTagList(path.toStdString(), tagModel->tags(), e)) {
        error = QString::fromStdString(e);
        return false;
    }
    showMessage("tags saved to " + path);
    return true;
}

void MainWindow::chooseLoad()
{
    const QString path = QFileDialog::getOpenFileName(
        this, "Load tags", QString(), "Tag lists (*.tags *.txt);;All files (*)");
    QString error;
    if (!path.isEmpty() && !loadTags(path, error))
        QMessageBox::warning(this, "Load tags", error);
}

void MainWindow::chooseSave()
{
    const QString path
        = QFileDialog::getSaveFileName(this, "Save tags", "monitor.tags", "Tag lists (*.tags *.txt)");
    QString error;
    if (!path.isEmpty() && !saveTags(path, error))
        QMessageBox::warning(this, "Save tags", error);
}

void MainWindow::moveSelected(int step)
{
    const QModelIndex current = tagTable->currentIndex();
    if (!current.isValid() || !tagModel->moveTag(current.row(), step))
        return;
    tagTable->selectRow(current.row() + step);
}

void MainWindow::removeSelected()
{
    const QModelIndex current = tagTable->currentIndex();
    if (current.isValid())
        tagModel->removeRows(current.row(), 1);
}

void MainWindow::sendTags() { emit requestTags(tagModel->pollTags()); }

void MainWindow::sendPolling() { emit requestPolling(pollBox->isChecked(), interval->value()); }

void MainWindow::updateTrendTags()
{
    QVector<TrendView::TrendTag> list;
    for (int row = 0; row < tagModel->rowCount(); ++row) {
        const MonitorTag &t = tagModel->tagAt(row);
        if (t.trend)
            list.push_back({ tagModel->idAt(row),
                tagModel->nameAt(row) + (t.station ? " @" + QString::number(t.station) : "") });
    }
    trendView->setTags(list);
}

void MainWindow::updateStatus()
{
    if (!connected) {
        statsLabel->clear();
        return;
    }
    const double seconds = double(QDateTime::currentMSecsSinceEpoch() - openedMs) / 1000;
    QString text = QString("%1 reads/s   p50 %2 ms   p99 %3 ms   errors %4")
                       .arg(seconds > 0 ? double(stats.commands()) / seconds : 0.0, 0, 'f', 1)
                       .arg(stats.percentileNs(0.5) / 1e6, 0, 'f', 1)
                       .arg(stats.percentileNs(0.99) / 1e6, 0, 'f', 1)
                       .arg(stats.failed());
    if (pollBox->isChecked() && cycleStatus.missed)
        text += QString("   interval missed: a cycle takes %1 ms").arg(cycleStatus.cycleMs);
    if (!cycleStatus.backedOff.isEmpty()) {
        QStringList list;
        for (int s : cycleStatus.backedOff)
            list << QString::number(s);
        text += QString("   station%1 %2 silent: read every %3th cycle")
                    .arg(list.size() == 1 ? "" : "s")
                    .arg(list.join(", "))
                    .arg(StationBackoff::defaultEvery);
    }
    statsLabel->setText(text);
}

QString MainWindow::statusText() const { return statsLabel->text(); }

QString MainWindow::messageText() const { return messageLabel->toolTip(); }

void MainWindow::showMessage(const QString &text)
{
    messageLabel->setText(text);
    messageLabel->setToolTip(text);
    messageTimer->start(10000);
}

void MainWindow::confirmWrite(const PendingWrite &w)
{
    // A tag removed, or read from another station or in another format
    // since the value was typed, is not written.
    auto unchanged = [this, w] {
        const int row = tagModel->rowOf(w.tag.id);
        if (row >= 0 && tagModel->pollTag(row).revision == w.tag.revision)
            return true;
        showMessage("nothing written: the tag changed while its value was typed");
        return false;
    };
    if (!unchanged())
        return;
    const QString where
        = w.name + " at station " + QString::number(w.tag.station ? w.tag.station : connectedStation);
    QStringList words;
    for (uint v : w.words)
        words << QString::number(v);
    auto *box = new QMessageBox(QMessageBox::Question, "Write",
        QString("Write to %1?\n\nnow:\t%2\nnew:\t%3\n%4sends:\t%5 (%6)")
            .arg(where, w.shown.isEmpty() ? "(not read)" : w.shown, w.typed,
                w.raw.isEmpty() ? QString() : "raw:\t" + w.raw + "\n", words.join(' '),
                w.tag.tag.format ? "registers" : "values"),
        QMessageBox::Yes | QMessageBox::Cancel, this);
    box->setObjectName("writeConfirmation");
    box->button(QMessageBox::Yes)->setText("Write");
    box->setDefaultButton(QMessageBox::Yes);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::buttonClicked, this, [this, box, w, where, unchanged](QAbstractButton *b) {
        if (box->standardButton(b) == QMessageBox::Yes && !unchanged())
            return;
        if (box->standardButton(b) != QMessageBox::Yes) {
            showMessage("write to " + where + " cancelled: nothing sent");
            return;
        }
        showMessage("writing " + w.typed + " to " + where);
        emit requestWrite(w.tag, w.words);
    });
    box->open();
}

void MainWindow::makeMenu()
{
    QMenu *file = menuBar()->addMenu("&File");
    QAction *open = file->addAction("Open &map...", this, &MainWindow::chooseMapFile);
    open->setToolTip("a register map (CSV) that names the tags, their units and scaling");
    file->addAction("&Load tags...", this, &MainWindow::chooseLoad);
    file->addAction("&Save tags...", this, &MainWindow::chooseSave);
    file->addSeparator();
    file->addAction("&Quit", this, &QWidget::close);
}

QWidget *MainWindow::makeMapLabel()
{
    mapLabel = new QLabel;
    mapLabel->setTextFormat(Qt::PlainText);
    mapLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    return mapLabel;
}

QString MainWindow::mapText() const { return mapShown; }

void MainWindow::chooseMapFile()
{
    const QString path
        = QFileDialog::getOpenFileName(this, "Open map", QString(), "Register maps (*.csv);;All files (*)");
    QString error;
    if (!path.isEmpty() && !openMap(path, error))
        QMessageBox::warning(this, "Open map", error);
}

bool MainWindow::openMap(const QString &path, QString &error)
{
    auto map = std::make_shared<ParameterMap>();
    std::string e;
    if (!loadParameterMap(path.toStdString(), *map, e)) {
        error = QString::fromStdString(e);
        return false;
    }
    mapOpened = path;
    useMap(map, "file:" + path, path);
    return true;
}

void MainWindow::chooseMap()
{
    if (!mapOpened.isEmpty())
        return;
    if (!chosenPort().isEmpty()) {
        useMap(nullptr, QString(), QString());
        return;
    }
    const QString file = simMap->text().trimmed();
    const QString key = "sim:" + file;
    if (key == mapKey)
        return;
    auto map = std::make_shared<ParameterMap>();
    std::string e;
    const bool ok = file.isEmpty() ? parseParameterMap(builtinServoMap(), *map, e)
                                   : loadParameterMap(file.toStdString(), *map, e);
    if (!ok) {
        showMessage("the simulated drive's map names no tags: " + QString::fromStdString(e));
        useMap(nullptr, key, QString());
        return;
    }
    useMap(map, key, file.isEmpty() ? "the simulated drive's built-in map" : file);
}

void MainWindow::useMap(std::shared_ptr<const ParameterMap> map, const QString &key, const QString &text)
{
    if (key == mapKey && map == paramMap)
        return;
    mapKey = key;
    mapShown = map ? text : QString();
    mapLabel->setText(map ? QString("Map: %1 (%2 parameters)").arg(text).arg(map->parameters.size())
                          : QString("Map: none (File > Open map... names the tags)"));
    mapLabel->setToolTip(mapLabel->text());
    paramMap = map;
    tagModel->setParameterMap(map);
    paramView->setMap(map);
}
