#ifndef HOST_MONITOR_TAGMODEL_H
#define HOST_MONITOR_TAGMODEL_H

// The tag table: what is polled, the last value of each tag, when it came
// and the last error. Editing a value asks for a write; the value shown
// changes only when a read brings it back. A tag whose last read failed
// keeps its last value greyed out, with the error beside it. A tag marked
// as an alarm stands out while its value is not zero.
//
// With a map, a tag may be a parameter's name: it shows the name, the value
// in engineering units with the unit, and the description as a tooltip; a
// value typed is in engineering units, checked (rawFromEngineering) before
// it is offered for a write. A parameter the map marks as an alarm stands
// out while its value is not zero, with its value list's text.

#include "monitortypes.h"
#include "tagvalues.h"

#include <QAbstractTableModel>
#include <QDateTime>

#include <memory>

struct ParameterMap;

// A write asked for by editing a value cell, waiting for the user's word.
struct PendingWrite
{
    PollTag tag;
    QVector<uint> words; // what goes to the driver
    QString typed; // as typed (a parameter's: engineering, with its unit)
    QString shown; // the value the cell showed, "" for none
    QString name; // the tag's name: a parameter's (with its address), else the tag
    QString raw; // a parameter's raw value going out; "" for a plain tag
};

Q_DECLARE_METATYPE(PendingWrite)

class TagModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column {
        TagColumn,
        StationColumn,
        TypeColumn,
        FormatColumn,
        ValueColumn,
        UpdatedColumn,
        ErrorColumn,
        ColumnCount
    };

    // setData of a value with this role asks for a confirmation
    // (writeToConfirm) rather than writing at once.
    static constexpr int ConfirmWriteRole = Qt::UserRole + 1;

    explicit TagModel(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    bool removeRows(int row, int count, const QModelIndex &parent = QModelIndex()) override;

    // Adds a tag from its line ("HR100:float32 station=2"); false with one
    // sentence in error.
    bool addTag(const QString &line, QString &error);
    void addTag(const MonitorTag &tag);
    // Moves a row one place up (-1) or down (+1).
    bool moveTag(int row, int step);
    void setTags(const std::vector<MonitorTag> &tags);
    std::vector<MonitorTag> tags() const;

    // The map that names resolve in (nullptr: none). A tag of the old map
    // takes the new map's parameter of its name; one the new map lacks stays
    // at its address, without the name.
    void setParameterMap(std::shared_ptr<const ParameterMap> map);
    const ParameterMap *parameterMap() const { return paramMap.get(); }
    std::shared_ptr<const ParameterMap> sharedParameterMap() const { return paramMap; }
    // The name a tag is shown by: a parameter's, else the tag's text.
    QString nameAt(int row) const;
    // The value of a row as a trend plots it (engineering, for a parameter
    // without a value list); false for none or text.
    bool plotted(int row, double &value) const;

    // What the worker polls, in table order.
    QVector<PollTag> pollTags() const;
    PollTag pollTag(int row) const;
    int rowOf(int id) const;
    int idAt(int row) const { return rows.at(row).id; }
    const MonitorTag &tagAt(int row) const { return rows.at(row).tag; }
    QString valueText(int row) const;

public slots:
    // False for a reading of a tag that is gone or has changed since.
    bool applyReading(const Reading &reading);
    // The line closed or opened again: every value shown is from before.
    // Every value shown turns grey with why it may no longer hold: the line
    // closed, polling stopped, a scan holds the line.
    void markAllStale(const QString &why);
    // Forgets every value (another drive may be behind the same tags now).
    void forgetAllValues();
    void applyWrite(int id, bool ok, const QString &error);

signals:
    // The list or a tag's station changed: the worker needs the new list.
    void tagsChanged();
    void trendChanged();
    void writeRequested(const PollTag &tag, const QVector<uint> &values);
    void writeToConfirm(const PendingWrite &write);
    void message(const QString &text);

private:
    struct Row
    {
        int id = 0;
        int revision = 0;
        MonitorTag tag;
        std::vector<std::string> values; // as read (raw, for a parameter)
        std::string engineering; // a parameter's value (engineeringValue)
        bool hasValue = false;
        bool stale = false; // the value may no longer hold: staleWhy says why
        QString staleWhy;
        QDateTime updated;
        QString error;
        QString backoff; // why the station is read only now and then
    };
    void rowChanged(int row);
    // A reading's values to the row; false with why not (a parameter's
    // value that does not convert).
    bool takeValues(Row &r, const Reading &reading, QString &error) const;
    static bool isAlarm(const Row &r);
    bool setValue(int row, const QString &typed, bool confirm);
    // What the cells show: their text (for editing, with edit), and the
    // other roles.
    QVariant text(int row, int column, bool edit) const;
    QVariant decoration(const Row &r, int column, int role) const;
    static QVariant foreground(const Row &r, int column, bool alarm);
    static QVariant toolTip(const Row &r, int column, bool alarm);
    void forgetValue(Row &row);
    Row newRow(const MonitorTag &tag); // with the next id

    QVector<Row> rows;
    int nextId = 1;
    std::shared_ptr<const ParameterMap> paramMap;
};

#endif // HOST_MONITOR_TAGMODEL_H
