#include "trafficview.h"

#include "seriallink.h"

#include <QBrush>
#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSplitter>
#include <QTableView>
#include <QTableWidget>
#include <QVBoxLayout>

TraceModel::TraceModel(int rowLimit, QObject *parent)
    : QAbstractTableModel(parent)
    , limit(rowLimit)
{
}

int TraceModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(rows.size()); }

int TraceModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant TraceModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || size_t(index.row()) >= rows.size())
        return QVariant();
    const Row &r = rows[size_t(index.row())];
    switch (role) {
    case Qt::DisplayRole:
        return text(r, index.column());
    case Qt::ForegroundRole:
        return foreground(r);
    case Qt::FontRole:
        if (index.column() == BytesColumn)
            return QFontDatabase::systemFont(QFontDatabase::FixedFont);
        break;
    case Qt::ToolTipRole:
        if (index.column() >= FrameColumn)
            return r.frame + "\n" + r.bytes;
        break;
    case Qt::TextAlignmentRole:
        if (index.column() == StationColumn || index.column() == AfterColumn)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        break;
    }
    return QVariant();
}

QVariant TraceModel::text(const Row &r, int column)
{
    const TraceEvent &e = r.event;
    switch (column) {
    case TimeColumn:
        return r.time.toString("HH:mm:ss.zzz");
    case StationColumn:
        return e.station >= 0 ? QVariant(e.station) : QVariant();
    case KindColumn:
        return traceKindName(e.kind);
    case AfterColumn:
        return e.kind == TraceEvent::Kind::Sent || e.sinceRequestNs < 0
            ? QString()
            : QString::number(double(e.sinceRequestNs) / 1e6, 'f', 1);
    case FrameColumn:
        return r.frame;
    case BytesColumn:
        return r.bytes;
    }
    return QVariant();
}

// Trouble in red, requests in blue.
QVariant TraceModel::foreground(const Row &r)
{
    const TraceEvent &e = r.event;
    const bool trouble = e.kind != TraceEvent::Kind::Sent && e.kind != TraceEvent::Kind::Received;
    if (trouble || r.frame.contains("exception") || r.frame.contains("BAD"))
        return QBrush(QColor(180, 0, 0));
    if (e.kind == TraceEvent::Kind::Sent)
        return QBrush(QColor(0, 70, 150));
    return QVariant();
}

QVariant TraceModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::ToolTipRole && section == AfterColumn)
        return "milliseconds since the end of the request";
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    static const char *const names[ColumnCount] = { "Time", "Station", "Event", "+ms", "Frame", "Bytes" };
    return section >= 0 && section < ColumnCount ? names[section] : "";
}

void TraceModel::add(const QVector<TraceEvent> &events)
{
    if (events.isEmpty())
        return;
    // Trace times are the link's monotonic clock; shown as wall-clock times.
    const qint64 wallMs = QDateTime::currentMSecsSinceEpoch();
    const int64_t nowNs = monotonicNs();
    const int incoming = std::min(events.size(), limit);
    const int drop = std::max(0, int(rows.size()) + incoming - limit);
    if (drop > 0) {
        beginRemoveRows(QModelIndex(), 0, drop - 1);
        rows.erase(rows.begin(), rows.begin() + drop);
        endRemoveRows();
    }
    beginInsertRows(QModelIndex(), int(rows.size()), int(rows.size()) + incoming - 1);
    for (int i = events.size() - incoming; i < events.size(); ++i) {
        Row r;
        r.event = events[i];
        r.time = QDateTime::fromMSecsSinceEpoch(wallMs - (nowNs - r.event.timeNs) / 1000000);
        r.frame = QString::fromStdString(describeFrame(r.event));
        r.bytes = QString::fromStdString(hexBytes(r.event.bytes));
        rows.push_back(std::move(r));
    }
    endInsertRows();
}

void TraceModel::clear()
{
    beginResetModel();
    rows.clear();
    endResetModel();
}

void TraceFilter::setStation(int s)
{
    station = s;
    invalidateFilter();
}

void TraceFilter::setDirection(Direction d)
{
    direction = d;
    invalidateFilter();
}

bool TraceFilter::filterAcceptsRow(int row, const QModelIndex &) const
{
    const TraceEvent &e = static_cast<const TraceModel *>(sourceModel())->event(row);
    if (station && e.station != station)
        return false;
    switch (direction) {
    case All:
        return true;
    case Sent:
        return e.kind == TraceEvent::Kind::Sent;
    case Received:
        return e.kind == TraceEvent::Kind::Received;
    case Problems:
        if (e.kind == TraceEvent::Kind::Received) {
            // A reply is a problem when it is an exception, fails its CRC,
            // or the link had something to say about it.
            const auto *bytes = reinterpret_cast<const uint8_t *>(e.bytes.data());
            const int length = int(e.bytes.size());
            return !e.note.empty() || (length >= 2 && (bytes[1] & 0x80)) || !modbusCrcOk(bytes, length);
        }
        if (e.kind == TraceEvent::Kind::Sent)
            return !e.note.empty(); // the line took only part of the request
        return true;
    }
    return true;
}

namespace {

struct HealthColumn
{
    const char *name;
    uint64_t StationHealth::*field;
};

const HealthColumn healthColumns[] = {
    { "Requests", &StationHealth::requests },
    { "Retries", &StationHealth::retries },
    { "Time-outs", &StationHealth::timeOuts },
    { "CRC", &StationHealth::crcErrors },
    { "Exceptions", &StationHealth::exceptions },
    { "Late bytes", &StationHealth::lateBytesDropped },
    { "Stale bytes", &StationHealth::staleBytesDropped },
};

} // namespace

TrafficView::TrafficView(QWidget *parent)
    : QWidget(parent)
    , trace(new TraceModel(5000, this))
    , filtered(new TraceFilter(this))
{
    filtered->setSourceModel(trace);
    QHBoxLayout *bar = makeFilterBar();
    makeTraceView();
    makeHealthView();
    QWidget *healthBox = makeHealthBox();
    auto *split = new QSplitter(Qt::Vertical);
    split->addWidget(view);
    split->addWidget(healthBox);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 0);
    split->setSizes({ 540, 130 });

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addLayout(bar);
    layout->addWidget(split, 1);
}

QHBoxLayout *TrafficView::makeFilterBar()
{
    stationBox = new QComboBox;
    stationBox->addItem("all stations", 0);
    directionBox = new QComboBox;
    directionBox->addItem("all frames", TraceFilter::All);
    directionBox->addItem("sent", TraceFilter::Sent);
    directionBox->addItem("received", TraceFilter::Received);
    directionBox->addItem("problems", TraceFilter::Problems);
    directionBox->setToolTip("problems: exceptions, CRC errors, time-outs, stale and late bytes, echoes, and "
                             "sends the line cut short");
    freeze = new QCheckBox("Freeze");
    freeze->setToolTip("stop adding new frames to the list");
    auto *clearButton = new QPushButton("Clear");

    auto *bar = new QHBoxLayout;
    bar->addWidget(new QLabel("Show"));
    bar->addWidget(stationBox);
    bar->addWidget(directionBox);
    bar->addWidget(freeze);
    bar->addWidget(clearButton);
    bar->addStretch();

    connect(stationBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
        [this] { filtered->setStation(stationBox->currentData().toInt()); });
    connect(directionBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
        [this] { filtered->setDirection(TraceFilter::Direction(directionBox->currentData().toInt())); });
    connect(clearButton, &QPushButton::clicked, this, &TrafficView::clear);
    return bar;
}

void TrafficView::makeTraceView()
{
    view = new QTableView;
    view->setModel(filtered);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->verticalHeader()->hide();
    view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 4);
    view->setWordWrap(false);
    view->horizontalHeader()->setStretchLastSection(true);
    const QFontMetrics m = view->fontMetrics();
    view->setColumnWidth(TraceModel::TimeColumn, m.horizontalAdvance("00:00:00.000") + 16);
    view->setColumnWidth(TraceModel::StationColumn, m.horizontalAdvance("Station") + 16);
    view->setColumnWidth(TraceModel::KindColumn, m.horizontalAdvance("TIMEOUT") + 16);
    view->setColumnWidth(TraceModel::AfterColumn, m.horizontalAdvance("1000.0") + 16);
    view->setColumnWidth(TraceModel::FrameColumn,
        m.horizontalAdvance("station 1, read holding registers HR100 x1, CRC ok") + 16);
}

void TrafficView::makeHealthView()
{
    healthView = new QTableWidget(0, int(std::size(healthColumns)) + 1);
    healthView->verticalHeader()->hide();
    QStringList headers { "Station" };
    for (const HealthColumn &c : healthColumns)
        headers << c.name;
    healthView->setHorizontalHeaderLabels(headers);
    healthView->horizontalHeader()->setToolTip(
        "late bytes: late answers dropped; stale bytes: bytes waiting on "
        "the line before a request, dropped");
    healthView->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    healthView->horizontalHeader()->setStretchLastSection(true);
    healthView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    healthView->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 4);
}

QWidget *TrafficView::makeHealthBox()
{
    faultEdit = new QLineEdit;
    faultEdit->setPlaceholderText("noreply:station=1,times=1");
    faultEdit->setToolTip("a fault for the simulated drive, as teco-sim --fault takes it");
    auto *faultButton = new QPushButton("Inject fault");

    auto *healthBox = new QWidget;
    auto *healthLayout = new QVBoxLayout(healthBox);
    healthLayout->setContentsMargins(0, 0, 0, 0);
    healthLayout->addWidget(new QLabel("Link health by station"));
    healthLayout->addWidget(healthView);
    auto *faultRow = new QHBoxLayout;
    faultRow->addWidget(new QLabel("Fault for the simulated drive"));
    faultRow->addWidget(faultEdit, 1);
    faultRow->addWidget(faultButton);
    healthLayout->addLayout(faultRow);

    auto inject = [this] {
        if (!faultEdit->text().trimmed().isEmpty())
            emit faultRequested(faultEdit->text().trimmed());
    };
    connect(faultButton, &QPushButton::clicked, this, inject);
    connect(faultEdit, &QLineEdit::returnPressed, this, inject);
    return healthBox;
}

void TrafficView::noteStation(int station)
{
    if (station <= 0 || stationBox->findData(station) >= 0)
        return;
    int at = 1;
    while (at < stationBox->count() && stationBox->itemData(at).toInt() < station)
        ++at;
    stationBox->insertItem(at, "station " + QString::number(station), station);
}

void TrafficView::addEvents(const QVector<TraceEvent> &events)
{
    for (const TraceEvent &e : events)
        noteStation(e.station);
    if (freeze->isChecked())
        return;
    QScrollBar *bar = view->verticalScrollBar();
    const bool atEnd = bar->value() >= bar->maximum() - 2;
    trace->add(events);
    if (atEnd)
        view->scrollToBottom();
}

void TrafficView::setHealth(const HealthMap &health)
{
    last = health;
    healthView->setRowCount(int(health.size()));
    int row = 0;
    for (const auto &entry : health) {
        noteStation(entry.first);
        auto *name = new QTableWidgetItem(QString::number(entry.first));
        name->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        healthView->setItem(row, 0, name);
        for (size_t c = 0; c < std::size(healthColumns); ++c) {
            const uint64_t v = entry.second.*healthColumns[c].field;
            auto *item = new QTableWidgetItem(QString::number(v));
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            if (v && c > 0)
                item->setForeground(QBrush(QColor(180, 0, 0)));
            healthView->setItem(row, int(c) + 1, item);
        }
        ++row;
    }
}

StationHealth TrafficView::health(int station) const
{
    auto it = last.find(station);
    return it == last.end() ? StationHealth() : it->second;
}

void TrafficView::clear() { trace->clear(); }
