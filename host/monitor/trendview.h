#ifndef HOST_MONITOR_TRENDVIEW_H
#define HOST_MONITOR_TRENDVIEW_H

// Trends: every ticked tag's first value against the wall clock. Each tag
// keeps its latest samples in a ring of fixed size, so hours of polling use
// the same memory as minutes. The chart follows the newest samples over the
// chosen span until it is paused, zoomed (rubber band, wheel) or panned
// (right button drag); "Follow" takes it back.

#include <QColor>
#include <QPointF>
#include <QString>
#include <QVector>
#include <QWidget>

#include <map>

class QCheckBox;
class QComboBox;
class QPushButton;
class QTimer;

namespace QtCharts {
class QChart;
class QChartView;
class QDateTimeAxis;
class QLineSeries;
class QValueAxis;
}

// The newest samples of one tag, oldest first.
class SampleRing
{
public:
    explicit SampleRing(int capacity);
    void push(const QPointF &sample);
    int size() const { return count; }
    int capacity() const { return buffer.size(); }
    const QPointF &at(int i) const { return buffer[(start + i) % buffer.size()]; }

private:
    QVector<QPointF> buffer;
    int start = 0, count = 0;
};

class TrendView : public QWidget
{
    Q_OBJECT
public:
    // samplesPerTag: the ring size of each tag.
    explicit TrendView(int samplesPerTag = 36000, QWidget *parent = nullptr);

    struct TrendTag
    {
        int id;
        QString name;
    };
    // The tags to plot, in order; samples of tags no longer listed are dropped.
    void setTags(const QVector<TrendTag> &tags);
    void addSample(int id, qint64 timeMs, double value);
    // A failed read: the tag's line breaks here, and its CSV row has no value.
    void addGap(int id, qint64 timeMs);
    // Drops every sample kept (the tags now read another drive).
    void clearSamples();

    // Samples kept of a tag, and points plotted now of all tags.
    int samples(int id) const;
    int plottedPoints() const;
    // The pieces a tag's line is drawn in now: one more for every gap shown.
    int linePieces(int id) const;
    bool paused() const;
    // The colour of the n-th tag's line (from 0): distinct for many tags.
    static QColor colourAt(int n);
    QColor colourOf(int id) const;

    // CSV: time,tag,value per sample, in time order; one sentence in error.
    bool exportCsv(const QString &path, QString &error) const;
    bool exportPng(const QString &path, QString &error) const;

public slots:
    void refresh();
    void setPaused(bool on);
    void follow();

private:
    struct Trace
    {
        QString name;
        SampleRing ring;
        QtCharts::QLineSeries *series = nullptr; // the first piece of the line, named in the legend
        QList<QtCharts::QLineSeries *> pieces; // the pieces after each gap, unnamed
        QtCharts::QValueAxis *axis = nullptr; // its own axis, when each tag has one
    };
    void setUpChart();
    void layOut(QWidget *followButton, QWidget *csvButton, QWidget *pngButton);
    // The time axis over the newest samples and the span chosen.
    void showNewest();
    void dropTrace(std::map<int, Trace>::iterator it);
    void rebuildAxes();
    // Shows points, which may hold gaps (NaN), as pieces of one line.
    void plot(Trace &t, const QVector<QPointF> &points);
    void attach(Trace &t, QtCharts::QLineSeries *s);
    void chooseCsv();
    void choosePng();
    void userMovedView();
    friend class TrendChartView;

    int capacity;
    std::map<int, Trace> traces;
    QVector<int> order;
    QtCharts::QChart *chart;
    QtCharts::QChartView *view;
    QtCharts::QDateTimeAxis *timeAxis;
    QtCharts::QValueAxis *sharedAxis;
    QComboBox *span;
    QCheckBox *axisPerTag;
    QPushButton *pauseButton;
    QTimer *timer;
    bool following = true;
};

#endif // HOST_MONITOR_TRENDVIEW_H
