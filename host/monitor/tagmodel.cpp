#include "tagmodel.h"

#include "parammap.h"
#include "textutil.h"

#include <QBrush>
#include <QFont>
#include <QPalette>

TagModel::TagModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

int TagModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : rows.size(); }

int TagModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QString TagModel::valueText(int row) const
{
    const Row &r = rows.at(row);
    if (!r.hasValue)
        return QString();
    if (r.tag.param)
        return QString::fromStdString(withUnit(*r.tag.param, r.engineering));
    QStringList parts;
    for (const std::string &v : r.values)
        parts << QString::fromStdString(v);
    return parts.join(' ');
}

namespace {

// The type column: the words a formatted tag reads, else its type and count.
QString typeText(const Tag &t)
{
    if (t.format) {
        const int words
            = t.format->number == NumberFormat::String ? t.count : t.count * t.format->registersPerValue();
        return QString("%1 word%2").arg(words).arg(words == 1 ? "" : "s");
    }
    return QString(valueTypeName(t.type)) + (t.count > 1 ? " x" + QString::number(t.count) : "");
}

// Whether an alarm tag's value is not zero.
bool alarmOn(const MonitorTag &tag, const std::vector<std::string> &values)
{
    double v = 0;
    for (const std::string &text : values)
        if (plotValue(tag.tag, text, v) && v != 0)
            return true;
    return false;
}

// What a parameter's name cell tells: its address and description.
QString parameterTip(const Parameter &p)
{
    QString tip = QString::fromStdString(p.tag.text);
    if (p.tag.format)
        tip += " (" + QString::fromStdString(p.tag.format->text()) + ")";
    if (!p.description.empty())
        tip += ": " + QString::fromStdString(p.description);
    return tip;
}

} // namespace

bool TagModel::isAlarm(const Row &r)
{
    return (r.tag.alarm || (r.tag.param && r.tag.param->alarm)) && r.hasValue && alarmOn(r.tag, r.values);
}

QString TagModel::nameAt(int row) const
{
    const MonitorTag &t = rows.at(row).tag;
    return QString::fromStdString(t.param ? t.param->name : t.tag.text);
}

bool TagModel::plotted(int row, double &value) const
{
    const Row &r = rows.at(row);
    if (!r.hasValue || r.stale || r.values.empty())
        return false;
    if (r.tag.param && r.tag.param->valueTexts.empty())
        return plotValue(r.tag.tag, r.engineering, value);
    return plotValue(r.tag.tag, r.values[0], value);
}

QVariant TagModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rows.size())
        return QVariant();
    const Row &r = rows.at(index.row());
    if (role == Qt::DisplayRole || role == Qt::EditRole)
        return text(index.row(), index.column(), role == Qt::EditRole);
    return decoration(r, index.column(), role);
}

QVariant TagModel::text(int row, int column, bool edit) const
{
    const Row &r = rows.at(row);
    const Tag &t = r.tag.tag;
    switch (column) {
    case TagColumn:
        return nameAt(row);
    case StationColumn:
        return edit ? QVariant(r.tag.station)
                    : QVariant(r.tag.station ? QString::number(r.tag.station) : "link");
    case TypeColumn:
        return typeText(t);
    case FormatColumn:
        return t.format ? QString::fromStdString(t.format->text()) : QString();
    case ValueColumn:
        return edit && r.tag.param && r.hasValue ? QString::fromStdString(r.engineering) : valueText(row);
    case UpdatedColumn:
        return r.updated.isValid() ? r.updated.toString("HH:mm:ss.zzz") : QString();
    case ErrorColumn:
        return r.backoff.isEmpty() ? r.error : r.backoff + ": " + r.error;
    }
    return QVariant();
}

QVariant TagModel::decoration(const Row &r, int column, int role) const
{
    const bool alarm = column == ValueColumn && isAlarm(r);
    switch (role) {
    case Qt::CheckStateRole:
        if (column == TagColumn && trendable(r.tag.tag))
            return r.tag.trend ? Qt::Checked : Qt::Unchecked;
        break;
    case Qt::ForegroundRole:
        return foreground(r, column, alarm);
    case Qt::BackgroundRole:
        if (alarm)
            return QBrush(r.stale ? QColor(230, 150, 150) : QColor(200, 0, 0));
        break;
    case Qt::FontRole:
        if (column == ValueColumn && (r.stale || alarm)) {
            QFont f;
            f.setItalic(r.stale);
            f.setBold(alarm);
            return f;
        }
        break;
    case Qt::TextAlignmentRole:
        if (column == ValueColumn || column == StationColumn)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        break;
    case Qt::ToolTipRole:
        return toolTip(r, column, alarm);
    }
    return QVariant();
}

QVariant TagModel::foreground(const Row &r, int column, bool alarm)
{
    if (column == ErrorColumn)
        return QBrush(QColor(180, 0, 0));
    if (column == ValueColumn && r.stale)
        return QBrush(Qt::gray);
    if (alarm)
        return QBrush(Qt::white);
    return QVariant();
}

QVariant TagModel::toolTip(const Row &r, int column, bool alarm)
{
    const QString about = r.tag.param ? parameterTip(*r.tag.param) + "\n" : QString();
    switch (column) {
    case ValueColumn:
        return about + (alarm ? "alarm (not zero); " : QString())
            + (r.stale ? r.staleWhy + ": this value is from " + r.updated.toString("HH:mm:ss.zzz")
                       : QString("double-click to write"));
    case TagColumn:
        return about + (trendable(r.tag.tag) ? "ticked: shown in the trend" : "text: not trended");
    case FormatColumn:
        return takesFormat(r.tag.tag) && !r.tag.param ? "double-click to choose a number format" : QVariant();
    case ErrorColumn:
        return r.error;
    }
    return QVariant();
}

QVariant TagModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    static const char *const names[ColumnCount]
        = { "Tag", "Station", "Type", "Format", "Value", "Updated", "Last error" };
    return section >= 0 && section < ColumnCount ? names[section] : "";
}

Qt::ItemFlags TagModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags f = QAbstractTableModel::flags(index);
    switch (index.column()) {
    case TagColumn:
        return index.row() < rows.size() && trendable(rows[index.row()].tag.tag) ? f | Qt::ItemIsUserCheckable
                                                                                 : f;
    case FormatColumn:
        return index.row() < rows.size() && takesFormat(rows[index.row()].tag.tag)
                && !rows[index.row()].tag.param
            ? f | Qt::ItemIsEditable
            : f;
    case StationColumn:
    case ValueColumn:
        return f | Qt::ItemIsEditable;
    }
    return f;
}

bool TagModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.row() >= rows.size())
        return false;
    Row &r = rows[index.row()];
    std::string error;
    if (index.column() == TagColumn && role == Qt::CheckStateRole) {
        if (!trendable(r.tag.tag))
            return false;
        r.tag.trend = value.toInt() == Qt::Checked;
        rowChanged(index.row());
        emit trendChanged();
        return true;
    }
    if (index.column() == ValueColumn && (role == Qt::EditRole || role == ConfirmWriteRole))
        return setValue(index.row(), value.toString(), role == ConfirmWriteRole);
    if (role != Qt::EditRole)
        return false;
    switch (index.column()) {
    case StationColumn: {
        int station = 0;
        const std::string text = value.toString().trimmed().toStdString();
        if (text != "link" && !parseWholeNumber(text, 0, 247, station)) {
            emit message("a station is 1 to 247, or 0 for the connection's");
            return false;
        }
        if (station != r.tag.station) {
            r.tag.station = station;
            forgetValue(r); // what it shows is another station's
        }
        rowChanged(index.row());
        emit tagsChanged();
        emit trendChanged();
        return true;
    }
    case FormatColumn: {
        Tag t = r.tag.tag;
        if (!setTagFormat(t, value.toString().toStdString(), error)) {
            emit message(QString::fromStdString(error));
            return false;
        }
        if (t.text != r.tag.tag.text) {
            r.tag.tag = t;
            r.tag.trend = r.tag.trend && trendable(t);
            forgetValue(r); // what it shows is in the old format
            rowChanged(index.row());
            emit tagsChanged();
            emit trendChanged();
        }
        return true;
    }
    }
    return false;
}

bool TagModel::setValue(int row, const QString &typed, bool confirm)
{
    const Row &r = rows.at(row);
    const Parameter *param = r.tag.param;
    std::vector<uint32_t> values;
    std::string raw = typed.trimmed().toStdString(), error;
    // A parameter's value is checked in engineering units before its raw
    // value is checked as any tag's.
    if ((param && !rawFromEngineering(*param, typed.trimmed().toStdString(), raw, error))
        || !parseWriteValues(param ? raw : typed.toStdString(), r.tag.tag, values, error)) {
        emit message(QString::fromStdString(error));
        return false;
    }
    PendingWrite w;
    w.tag = pollTag(row);
    w.words = QVector<uint>(values.begin(), values.end());
    w.typed = param ? QString::fromStdString(withUnit(*param, typed.trimmed().toStdString()))
                    : typed.simplified();
    w.shown = valueText(row);
    w.name = param ? nameAt(row) + " (" + QString::fromStdString(r.tag.tag.text) + ")" : nameAt(row);
    w.raw = param ? QString::fromStdString(raw) : QString();
    if (confirm) {
        emit writeToConfirm(w);
        return false;
    }
    emit message("writing " + w.typed + " to " + w.name);
    emit writeRequested(w.tag, w.words);
    return false; // the value shown changes when a read brings it back
}

TagModel::Row TagModel::newRow(const MonitorTag &tag)
{
    Row r;
    r.id = nextId++;
    r.tag = tag;
    return r;
}

void TagModel::forgetValue(Row &r)
{
    ++r.revision;
    r.values.clear();
    r.engineering.clear();
    r.hasValue = r.stale = false;
    r.updated = QDateTime();
    r.error.clear();
    r.backoff.clear();
}

void TagModel::markAllStale(const QString &why)
{
    for (Row &r : rows)
        if (r.hasValue && !r.stale) {
            r.stale = true;
            r.staleWhy = why;
        }
    if (!rows.isEmpty())
        emit dataChanged(index(0, 0), index(rows.size() - 1, ColumnCount - 1));
}

void TagModel::forgetAllValues()
{
    for (Row &r : rows)
        forgetValue(r);
    if (!rows.isEmpty())
        emit dataChanged(index(0, 0), index(rows.size() - 1, ColumnCount - 1));
    emit tagsChanged(); // the new revisions: readings from before are dropped
}

void TagModel::rowChanged(int row) { emit dataChanged(index(row, 0), index(row, ColumnCount - 1)); }

bool TagModel::removeRows(int row, int count, const QModelIndex &parent)
{
    if (parent.isValid() || row < 0 || count <= 0 || row + count > rows.size())
        return false;
    beginRemoveRows(parent, row, row + count - 1);
    rows.remove(row, count);
    endRemoveRows();
    emit tagsChanged();
    emit trendChanged();
    return true;
}

bool TagModel::addTag(const QString &line, QString &error)
{
    MonitorTag t;
    std::string e;
    if (!parseMonitorTag(line.toStdString(), t, e, paramMap.get())) {
        error = QString::fromStdString(e);
        return false;
    }
    addTag(t);
    return true;
}

void TagModel::addTag(const MonitorTag &tag)
{
    beginInsertRows(QModelIndex(), rows.size(), rows.size());
    rows.push_back(newRow(tag));
    endInsertRows();
    emit tagsChanged();
    emit trendChanged();
}

bool TagModel::moveTag(int row, int step)
{
    const int to = row + step;
    if (row < 0 || row >= rows.size() || to < 0 || to >= rows.size() || step == 0)
        return false;
    // beginMoveRows names the row before which the moved one lands.
    if (!beginMoveRows(QModelIndex(), row, row, QModelIndex(), step > 0 ? to + 1 : to))
        return false;
    rows.move(row, to);
    endMoveRows();
    emit tagsChanged();
    return true;
}

void TagModel::setTags(const std::vector<MonitorTag> &tags)
{
    beginResetModel();
    rows.clear();
    for (const MonitorTag &t : tags)
        rows.push_back(newRow(t));
    endResetModel();
    emit tagsChanged();
    emit trendChanged();
}

std::vector<MonitorTag> TagModel::tags() const
{
    std::vector<MonitorTag> out;
    for (const Row &r : rows)
        out.push_back(r.tag);
    return out;
}

PollTag TagModel::pollTag(int row) const
{
    PollTag p;
    p.id = rows.at(row).id;
    p.tag = rows.at(row).tag.tag;
    p.station = rows.at(row).tag.station;
    p.revision = rows.at(row).revision;
    return p;
}

QVector<PollTag> TagModel::pollTags() const
{
    QVector<PollTag> out;
    for (int i = 0; i < rows.size(); ++i)
        out.push_back(pollTag(i));
    return out;
}

int TagModel::rowOf(int id) const
{
    for (int i = 0; i < rows.size(); ++i)
        if (rows[i].id == id)
            return i;
    return -1;
}

bool TagModel::takeValues(Row &r, const Reading &reading, QString &error) const
{
    std::string value, e;
    if (r.tag.param
        && (reading.values.size() != 1 || !engineeringValue(*r.tag.param, reading.values[0], value, e))) {
        error = e.empty() ? QString("no single value read") : QString::fromStdString(e);
        return false;
    }
    r.values = reading.values;
    r.engineering = value;
    r.hasValue = true;
    r.stale = false;
    r.updated = QDateTime::fromMSecsSinceEpoch(reading.timeMs);
    r.error.clear();
    return true;
}

bool TagModel::applyReading(const Reading &reading)
{
    const int row = rowOf(reading.id);
    if (row < 0 || rows[row].revision != reading.revision)
        return false;
    Row &r = rows[row];
    r.backoff = reading.backoff;
    QString error = reading.error;
    if (!reading.ok || !takeValues(r, reading, error)) {
        // A value that does not convert is a failed read: the last good one stays, greyed.
        r.stale = r.hasValue;
        r.staleWhy = reading.backoff.isEmpty() ? QString("the last read failed") : reading.backoff;
        r.error = error;
    }
    rowChanged(row);
    return true;
}

void TagModel::setParameterMap(std::shared_ptr<const ParameterMap> map)
{
    for (int i = 0; i < rows.size(); ++i) {
        Row &r = rows[i];
        if (!r.tag.param)
            continue;
        const Parameter *now = map ? map->find(r.tag.param->name) : nullptr;
        forgetValue(r); // read anew: the new map may scale it otherwise
        if (now)
            r.tag.tag = now->tag;
        r.tag.param = now;
        r.tag.trend = r.tag.trend && trendable(r.tag.tag);
    }
    paramMap = std::move(map);
    if (!rows.isEmpty())
        emit dataChanged(index(0, 0), index(rows.size() - 1, ColumnCount - 1));
    emit tagsChanged();
    emit trendChanged();
}

void TagModel::applyWrite(int id, bool ok, const QString &error)
{
    const int row = rowOf(id);
    if (row < 0)
        return;
    const QString name = nameAt(row);
    if (ok) {
        // The read-back that confirmed the write is shown already.
        emit message("wrote " + name + " and read it back");
    } else {
        rows[row].error = error;
        rowChanged(row);
        emit message("write to " + name + " failed: " + error);
    }
}
