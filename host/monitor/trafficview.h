#ifndef HOST_MONITOR_TRAFFICVIEW_H
#define HOST_MONITOR_TRAFFICVIEW_H

// The frame trace as it happens, decoded, filtered by station and
// direction, with each station's link-health counters below it. The trace
// keeps its newest events only (a fixed number), however long it runs.

#include "traffic.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QSortFilterProxyModel>
#include <QWidget>

#include <deque>

class QCheckBox;
class QComboBox;
class QHBoxLayout;
class QLineEdit;
class QTableView;
class QTableWidget;

class TraceModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { TimeColumn, StationColumn, KindColumn, AfterColumn, FrameColumn, BytesColumn, ColumnCount };
    explicit TraceModel(int limit, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    void add(const QVector<TraceEvent> &events);
    void clear();
    const TraceEvent &event(int row) const { return rows.at(size_t(row)).event; }

private:
    struct Row
    {
        TraceEvent event;
        QDateTime time;
        QString frame, bytes;
    };
    static QVariant text(const Row &r, int column);
    static QVariant foreground(const Row &r);
    int limit;
    std::deque<Row> rows;
};

class TraceFilter : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    using QSortFilterProxyModel::QSortFilterProxyModel;
    enum Direction { All, Sent, Received, Problems };
    void setStation(int station); // 0: every station
    void setDirection(Direction direction);

protected:
    bool filterAcceptsRow(int row, const QModelIndex &parent) const override;

private:
    int station = 0;
    Direction direction = All;
};

class TrafficView : public QWidget
{
    Q_OBJECT
public:
    explicit TrafficView(QWidget *parent = nullptr);

    TraceModel *model() const { return trace; }
    TraceFilter *filter() const { return filtered; }
    QTableWidget *healthTable() const { return healthView; }
    // The link's counters of one station, as last reported.
    StationHealth health(int station) const;

public slots:
    void addEvents(const QVector<TraceEvent> &events);
    void setHealth(const HealthMap &health);
    void clear();

signals:
    void faultRequested(const QString &rule);

private:
    QHBoxLayout *makeFilterBar();
    void makeTraceView();
    void makeHealthView();
    QWidget *makeHealthBox();
    void noteStation(int station);

    TraceModel *trace;
    TraceFilter *filtered;
    QTableView *view;
    QTableWidget *healthView;
    QComboBox *stationBox;
    QComboBox *directionBox;
    QCheckBox *freeze;
    QLineEdit *faultEdit;
    HealthMap last;
};

#endif // HOST_MONITOR_TRAFFICVIEW_H
