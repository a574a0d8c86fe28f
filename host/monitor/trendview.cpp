#include "trendview.h"

#include "textfile.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QDateTimeAxis>
#include <QtCharts/QLegend>
#include <QtCharts/QLegendMarker>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

using namespace QtCharts;

SampleRing::SampleRing(int capacity)
    : buffer(std::max(capacity, 1))
{
}

void SampleRing::push(const QPointF &sample)
{
    if (count < buffer.size()) {
        buffer[(start + count) % buffer.size()] = sample;
        ++count;
    } else {
        buffer[start] = sample;
        start = (start + 1) % buffer.size();
    }
}

// The chart with wheel zoom and right-button panning; any of them, and the
// rubber band, stop the view following the newest samples.
class TrendChartView : public QChartView
{
public:
    TrendChartView(QChart *chart, TrendView *owner)
        : QChartView(chart)
        , trend(owner)
    {
        setRubberBand(QChartView::RectangleRubberBand);
        setRenderHint(QPainter::Antialiasing);
    }

protected:
    void wheelEvent(QWheelEvent *e) override
    {
        trend->userMovedView();
        chart()->zoom(e->angleDelta().y() > 0 ? 1.25 : 0.8);
        e->accept();
    }
    void mousePressEvent(QMouseEvent *e) override
    {
        if (e->button() == Qt::RightButton) {
            panFrom = e->pos();
            panning = true;
            e->accept();
            return;
        }
        QChartView::mousePressEvent(e);
    }
    void mouseMoveEvent(QMouseEvent *e) override
    {
        if (panning) {
            trend->userMovedView();
            const QPoint d = e->pos() - panFrom;
            chart()->scroll(-d.x(), d.y());
            panFrom = e->pos();
            e->accept();
            return;
        }
        QChartView::mouseMoveEvent(e);
    }
    void mouseReleaseEvent(QMouseEvent *e) override
    {
        if (e->button() == Qt::RightButton) {
            panning = false;
            e->accept();
            return;
        }
        if (e->button() == Qt::LeftButton && rubberBand() != NoRubberBand)
            trend->userMovedView();
        QChartView::mouseReleaseEvent(e);
    }

private:
    TrendView *trend;
    QPoint panFrom;
    bool panning = false;
};

namespace {

QPushButton *button(const char *text, const char *toolTip)
{
    auto *b = new QPushButton(text);
    b->setToolTip(toolTip);
    return b;
}

QComboBox *makeSpanBox()
{
    auto *span = new QComboBox;
    const std::pair<const char *, int> spans[]
        = { { "30 s", 30 }, { "1 min", 60 }, { "5 min", 300 }, { "15 min", 900 }, { "1 h", 3600 } };
    for (const auto &s : spans)
        span->addItem(s.first, s.second);
    span->setCurrentIndex(1);
    span->setToolTip("how much of the newest samples the chart shows while it follows them");
    return span;
}

} // namespace

TrendView::TrendView(int samplesPerTag, QWidget *parent)
    : QWidget(parent)
    , capacity(samplesPerTag)
    , chart(new QChart)
    , timeAxis(new QDateTimeAxis)
    , sharedAxis(new QValueAxis)
{
    setUpChart();
    span = makeSpanBox();
    axisPerTag = new QCheckBox("Axis per tag");
    axisPerTag->setToolTip("each tag on its own value axis, in its colour");
    pauseButton = button("Pause", "stop following the newest samples (polling goes on)");
    pauseButton->setCheckable(true);
    auto *followButton = button("Follow", "undo zoom and pan, and follow the newest samples again");
    auto *csvButton = button("CSV...", "export every sample kept as CSV: time, tag, value");
    auto *pngButton = button("PNG...", "save the chart as a PNG image");
    layOut(followButton, csvButton, pngButton);

    connect(pauseButton, &QPushButton::toggled, this, &TrendView::setPaused);
    connect(followButton, &QPushButton::clicked, this, &TrendView::follow);
    connect(axisPerTag, &QCheckBox::toggled, this, [this] {
        rebuildAxes();
        refresh();
    });
    connect(span, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { refresh(); });
    connect(csvButton, &QPushButton::clicked, this, &TrendView::chooseCsv);
    connect(pngButton, &QPushButton::clicked, this, &TrendView::choosePng);
    timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &TrendView::refresh);
    timer->start(250);
}

void TrendView::setUpChart()
{
    chart->legend()->setAlignment(Qt::AlignBottom);
    chart->setMargins(QMargins(4, 4, 4, 4));
    timeAxis->setFormat("HH:mm:ss");
    timeAxis->setTitleText("time");
    timeAxis->setTickCount(5);
    chart->addAxis(timeAxis, Qt::AlignBottom);
    chart->addAxis(sharedAxis, Qt::AlignLeft);
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    timeAxis->setRange(QDateTime::fromMSecsSinceEpoch(now - 60000), QDateTime::fromMSecsSinceEpoch(now));
    sharedAxis->setRange(0, 1);
    sharedAxis->setLabelFormat("%g");
    view = new TrendChartView(chart, this);
    view->setMinimumSize(300, 200);
}

void TrendView::layOut(QWidget *followButton, QWidget *csvButton, QWidget *pngButton)
{
    // The export buttons below the chart, so that the bar above stays narrow
    // and the window's tag table keeps its room.
    auto *bar = new QHBoxLayout;
    bar->addWidget(new QLabel("Span"));
    bar->addWidget(span);
    bar->addWidget(axisPerTag);
    bar->addWidget(pauseButton);
    bar->addWidget(followButton);
    bar->addStretch();
    auto *hint = new QLabel("Drag to zoom, wheel to zoom in and out, right-drag to pan.");
    hint->setStyleSheet("color: gray");
    hint->setWordWrap(true);
    auto *below = new QHBoxLayout;
    below->addWidget(hint, 1);
    below->addWidget(csvButton);
    below->addWidget(pngButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addLayout(bar);
    layout->addWidget(view, 1);
    layout->addLayout(below);
}

void TrendView::dropTrace(std::map<int, Trace>::iterator it)
{
    Trace &t = it->second;
    QList<QLineSeries *> all = t.pieces; // a copy that outlives the loop
    all.prepend(t.series);
    for (QLineSeries *s : all) {
        chart->removeSeries(s);
        delete s;
    }
    if (t.axis) {
        chart->removeAxis(t.axis);
        delete t.axis;
    }
    traces.erase(it);
}

QColor TrendView::colourAt(int n)
{
    // Twelve colours that tell apart well, then further hues spread by the
    // golden angle, darker on every other turn.
    static const QRgb first[] = { 0x1f77b4, 0xd62728, 0x2ca02c, 0xff7f0e, 0x9467bd, 0x8c564b, 0xe377c2,
        0x17becf, 0x7f7f7f, 0xbcbd22, 0x000080, 0x008080 };
    const int known = int(sizeof first / sizeof first[0]);
    if (n < known)
        return QColor(first[n]);
    const int k = n - known;
    return QColor::fromHsv(int(std::fmod(k * 137.508 + 20, 360.0)), 255, k / 12 % 2 ? 150 : 220);
}

void TrendView::setTags(const QVector<TrendTag> &tags)
{
    QVector<int> ids;
    for (const TrendTag &t : tags)
        ids.push_back(t.id);
    for (auto it = traces.begin(); it != traces.end();) {
        auto next = std::next(it);
        if (!ids.contains(it->first))
            dropTrace(it);
        it = next;
    }
    for (const TrendTag &t : tags) {
        auto it = traces.find(t.id);
        if (it == traces.end()) {
            it = traces.emplace(t.id, Trace { t.name, SampleRing(capacity), nullptr, {}, nullptr }).first;
            it->second.series = new QLineSeries;
            chart->addSeries(it->second.series);
        }
        if (it->second.name != t.name) // another station: its samples are not this one's
            it->second.ring = SampleRing(capacity);
        it->second.name = t.name;
        it->second.series->setName(t.name);
    }
    order = ids;
    for (int i = 0; i < order.size(); ++i) {
        Trace &t = traces.at(order[i]);
        t.series->setColor(colourAt(i));
        for (QLineSeries *s : t.pieces)
            s->setPen(t.series->pen());
    }
    rebuildAxes();
    refresh();
}

void TrendView::attach(Trace &t, QLineSeries *s)
{
    for (QAbstractAxis *a : s->attachedAxes())
        s->detachAxis(a);
    s->attachAxis(timeAxis);
    s->attachAxis(t.axis ? t.axis : sharedAxis);
}

void TrendView::plot(Trace &t, const QVector<QPointF> &points)
{
    QVector<QVector<QPointF>> runs(1);
    for (const QPointF &p : points) {
        if (std::isnan(p.y())) {
            if (!runs.back().isEmpty())
                runs.push_back(QVector<QPointF>());
        } else {
            runs.back().push_back(p);
        }
    }
    t.series->replace(runs[0]);
    for (int i = 1; i < runs.size(); ++i) {
        if (t.pieces.size() < i) {
            auto *s = new QLineSeries;
            chart->addSeries(s);
            s->setPen(t.series->pen());
            attach(t, s);
            for (QLegendMarker *m : chart->legend()->markers(s))
                m->setVisible(false);
            t.pieces.push_back(s);
        }
        t.pieces[i - 1]->replace(runs[i]);
    }
    for (int i = runs.size() - 1; i < t.pieces.size(); ++i)
        t.pieces[i]->clear();
}

void TrendView::rebuildAxes()
{
    for (auto &entry : traces) {
        Trace &t = entry.second;
        for (QAbstractAxis *a : t.series->attachedAxes())
            t.series->detachAxis(a);
        for (QLineSeries *s : t.pieces)
            for (QAbstractAxis *a : s->attachedAxes())
                s->detachAxis(a);
        if (t.axis) {
            chart->removeAxis(t.axis);
            delete t.axis;
            t.axis = nullptr;
        }
    }
    sharedAxis->setVisible(!axisPerTag->isChecked() || traces.empty());
    int n = 0;
    for (int id : order) {
        Trace &t = traces.at(id);
        t.series->attachAxis(timeAxis);
        if (axisPerTag->isChecked()) {
            t.axis = new QValueAxis;
            t.axis->setLabelFormat("%g");
            const QColor c = t.series->color();
            t.axis->setLinePenColor(c);
            t.axis->setLabelsColor(c);
            chart->addAxis(t.axis, n++ % 2 ? Qt::AlignRight : Qt::AlignLeft);
            t.series->attachAxis(t.axis);
        } else {
            t.series->attachAxis(sharedAxis);
        }
        for (QLineSeries *s : t.pieces)
            attach(t, s);
    }
}

void TrendView::addSample(int id, qint64 timeMs, double value)
{
    auto it = traces.find(id);
    if (it != traces.end())
        it->second.ring.push(QPointF(double(timeMs), value));
}

void TrendView::addGap(int id, qint64 timeMs)
{
    auto it = traces.find(id);
    if (it != traces.end() && it->second.ring.size()
        && !std::isnan(it->second.ring.at(it->second.ring.size() - 1).y()))
        it->second.ring.push(QPointF(double(timeMs), std::nan("")));
}

void TrendView::clearSamples()
{
    for (auto &entry : traces)
        entry.second.ring = SampleRing(capacity);
    refresh();
}

int TrendView::samples(int id) const
{
    auto it = traces.find(id);
    return it == traces.end() ? 0 : it->second.ring.size();
}

int TrendView::linePieces(int id) const
{
    auto it = traces.find(id);
    if (it == traces.end())
        return 0;
    int n = it->second.series->count() ? 1 : 0;
    for (const QLineSeries *s : it->second.pieces)
        n += s->count() ? 1 : 0;
    return n;
}

int TrendView::plottedPoints() const
{
    int n = 0;
    for (const auto &entry : traces) {
        n += entry.second.series->count();
        for (const QLineSeries *s : entry.second.pieces)
            n += s->count();
    }
    return n;
}

bool TrendView::paused() const { return pauseButton->isChecked(); }

void TrendView::setPaused(bool on)
{
    if (pauseButton->isChecked() != on)
        pauseButton->setChecked(on); // comes back here through toggled
    pauseButton->setText(on ? "Resume" : "Pause");
    if (!on)
        follow();
}

void TrendView::follow()
{
    following = true;
    if (pauseButton->isChecked()) {
        pauseButton->setChecked(false);
        return;
    }
    chart->zoomReset();
    refresh();
}

void TrendView::userMovedView() { following = false; }

namespace {

// How many of r's samples come before time x, or at it with orAt.
int countBefore(const SampleRing &r, double x, bool orAt)
{
    int lo = 0, hi = r.size();
    while (lo < hi) {
        const int mid = (lo + hi) / 2;
        if (r.at(mid).x() < x || (orAt && r.at(mid).x() == x))
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

// Adds to points, in time order, the lowest, the highest and the first gap
// (a failed read: the line breaks in this column) of the samples from i on
// before columnEnd; returns the index after them. Sample i is in the column
// even when rounding put the column's end at its time: the caller always
// moves on.
int keepColumn(const SampleRing &r, int i, int last, double columnEnd, QVector<QPointF> &points)
{
    int lowAt = -1, highAt = -1, gapAt = -1;
    for (const int columnStart = i; i < last && (i == columnStart || r.at(i).x() < columnEnd); ++i) {
        if (std::isnan(r.at(i).y())) {
            gapAt = gapAt < 0 ? i : gapAt;
            continue;
        }
        if (lowAt < 0 || r.at(i).y() < r.at(lowAt).y())
            lowAt = i;
        if (highAt < 0 || r.at(i).y() > r.at(highAt).y())
            highAt = i;
    }
    std::array<int, 3> keep = { lowAt, highAt, gapAt };
    std::sort(keep.begin(), keep.end());
    const auto kept = std::unique(keep.begin(), keep.end());
    for (auto k = keep.begin(); k != kept; ++k)
        if (*k >= 0)
            points.push_back(r.at(*k));
    return i;
}

// The samples from time from to time to, and one on either side so that
// the line runs to the edges. At most about two points per pixel column:
// the lowest and the highest of each column, in time order, so that no
// spike is lost.
void samplesShown(const SampleRing &r, double from, double to, int columns, QVector<QPointF> &points)
{
    const int first = std::max(0, countBefore(r, from, false) - 1);
    const int last = std::min(r.size(), countBefore(r, to, true) + 1);
    if (last - first <= 2 * columns) {
        for (int i = first; i < last; ++i)
            points.push_back(r.at(i));
        return;
    }
    const double width = (to - from) / columns;
    int i = first;
    while (i < last) {
        const double columnEnd = std::floor((r.at(i).x() - from) / width + 1) * width + from;
        i = keepColumn(r, i, last, columnEnd, points);
    }
}

// The lowest and the highest value shown; empty (low > high) without any.
struct ValueRange
{
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void include(double lowest, double highest)
    {
        low = std::min(low, lowest);
        high = std::max(high, highest);
    }
};

ValueRange valueRange(const QVector<QPointF> &points)
{
    ValueRange range;
    for (const QPointF &p : points)
        range.include(p.y(), p.y()); // a gap (NaN) changes neither
    return range;
}

// The axis over range and a margin; no negative part for values that are
// never negative.
void fitAxis(QValueAxis *axis, const ValueRange &range)
{
    if (!(range.low <= range.high))
        return;
    const double m = std::max((range.high - range.low) * 0.05, 0.5);
    axis->setRange(range.low >= 0 ? std::max(0.0, range.low - m) : range.low - m, range.high + m);
    axis->applyNiceNumbers();
}

} // namespace

void TrendView::showNewest()
{
    qint64 newest = 0, oldest = 0;
    for (const auto &entry : traces) {
        const SampleRing &r = entry.second.ring;
        if (r.size()) {
            newest = std::max(newest, qint64(r.at(r.size() - 1).x()));
            oldest = oldest ? std::min(oldest, qint64(r.at(0).x())) : qint64(r.at(0).x());
        }
    }
    // The span, or less while there are fewer samples (10 s at least).
    const qint64 end = newest ? newest : QDateTime::currentMSecsSinceEpoch();
    const qint64 width = qint64(span->currentData().toInt()) * 1000;
    const qint64 begin = std::min(end - 10000, std::max(end - width, oldest ? oldest : end - width));
    timeAxis->setRange(QDateTime::fromMSecsSinceEpoch(begin), QDateTime::fromMSecsSinceEpoch(end));
}

void TrendView::refresh()
{
    const bool follows = following && !pauseButton->isChecked();
    if (follows)
        showNewest();
    else if (pauseButton->isChecked() && following)
        return; // paused and untouched: the picture stays as it is
    const double from = double(timeAxis->min().toMSecsSinceEpoch());
    const double to = double(timeAxis->max().toMSecsSinceEpoch());
    const int columns = std::max(100, int(chart->plotArea().width()));
    ValueRange all;
    for (int id : order) {
        Trace &t = traces.at(id);
        QVector<QPointF> points;
        samplesShown(t.ring, from, to, columns, points);
        plot(t, points);
        const ValueRange shown = valueRange(points);
        if (t.axis && follows)
            fitAxis(t.axis, shown);
        all.include(shown.low, shown.high);
    }
    if (follows)
        fitAxis(sharedAxis, all);
}

bool TrendView::exportCsv(const QString &path, QString &error) const
{
    struct Sample
    {
        double time, value;
        const QString *name;
    };
    std::vector<Sample> all;
    for (int id : order) {
        const Trace &t = traces.at(id);
        for (int i = 0; i < t.ring.size(); ++i)
            all.push_back({ t.ring.at(i).x(), t.ring.at(i).y(), &t.name });
    }
    std::stable_sort(
        all.begin(), all.end(), [](const Sample &a, const Sample &b) { return a.time < b.time; });
    std::string e;
    FILE *f = createTextFile(path.toStdString(), e);
    if (!f) {
        error = "cannot write " + path + ": " + QString::fromStdString(e);
        return false;
    }
    // Times in UTC, as teco-cli's logs write them; a failed read is a row
    // without a value.
    bool good = std::fputs("time,tag,value\n", f) >= 0;
    for (const Sample &s : all) {
        const QByteArray line
            = QDateTime::fromMSecsSinceEpoch(qint64(s.time), Qt::UTC).toString(Qt::ISODateWithMs).toUtf8()
            + ',' + s.name->toUtf8() + ','
            + (std::isnan(s.value) ? QByteArray() : QByteArray::number(s.value, 'g', 17)) + '\n';
        good = good && std::fwrite(line.constData(), 1, size_t(line.size()), f) == size_t(line.size());
    }
    if (std::fclose(f) != 0 || !good) {
        error = "cannot write " + path + ": the disk refused the data";
        return false;
    }
    return true;
}

bool TrendView::exportPng(const QString &path, QString &error) const
{
    if (!view->grab().save(path, "PNG")) {
        error = "cannot write " + path + " as a PNG image";
        return false;
    }
    return true;
}

void TrendView::chooseCsv()
{
    const QString path = QFileDialog::getSaveFileName(this, "Export samples", "trend.csv", "CSV (*.csv)");
    QString error;
    if (!path.isEmpty() && !exportCsv(path, error))
        QMessageBox::warning(this, "Export samples", error);
}

void TrendView::choosePng()
{
    const QString path = QFileDialog::getSaveFileName(this, "Save chart", "trend.png", "PNG (*.png)");
    QString error;
    if (!path.isEmpty() && !exportPng(path, error))
        QMessageBox::warning(this, "Save chart", error);
}

QColor TrendView::colourOf(int id) const
{
    auto it = traces.find(id);
    return it == traces.end() ? QColor() : it->second.series->color();
}
