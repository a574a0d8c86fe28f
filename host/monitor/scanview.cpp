#include "scanview.h"

#include "scanprobe.h"
#include "tag.h"

#include <QBrush>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

ScanView::ScanView(QWidget *parent)
    : QWidget(parent)
{
    from = new QSpinBox;
    from->setRange(1, 247);
    to = new QSpinBox;
    to->setRange(1, 247);
    to->setValue(247);
    address = new QLineEdit("HR1");
    address->setMaximumWidth(120);
    address->setToolTip("the probe: a plain address such as HR1 or DI1, read once per station");
    button = new QPushButton("Start scan");
    bar = new QProgressBar;
    bar->setRange(0, 1);
    bar->setValue(0);
    summary = new QLabel(QString("Each station gets one read, time-out %1 ms, no retry.").arg(scanTimeoutMs));
    // A long outcome wraps within the tab rather than widening the window's right side.
    summary->setWordWrap(true);
    summary->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    table = new QTableWidget(0, 2);
    table->setHorizontalHeaderLabels({ "Station", "Result" });
    table->horizontalHeader()->setStretchLastSection(true);
    table->verticalHeader()->hide();
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);

    auto *row = new QHBoxLayout;
    row->addWidget(new QLabel("Stations"));
    row->addWidget(from);
    row->addWidget(new QLabel("to"));
    row->addWidget(to);
    row->addWidget(new QLabel("probe"));
    row->addWidget(address);
    row->addWidget(button);
    row->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addLayout(row);
    layout->addWidget(bar);
    layout->addWidget(summary);
    layout->addWidget(table, 1);

    connect(button, &QPushButton::clicked, this, [this] {
        if (busy)
            emit stopRequested();
        else
            start();
    });
    setConnected(false);
}

QString ScanView::summaryText() const { return summary->text(); }

void ScanView::setConnected(bool on)
{
    connected = on;
    button->setEnabled(on || busy);
}

void ScanView::start()
{
    const int first = from->value(), last = to->value();
    AddressText probe;
    std::string error;
    // A refused scan leaves no earlier results behind as if they were its own.
    table->setRowCount(0);
    if (!checkScanRange(first, last, address->text().trimmed().toStdString(), false, probe, error)) {
        summary->setText(QString::fromStdString(error));
        emit message(QString::fromStdString(error));
        return;
    }
    bar->setRange(0, last - first + 1);
    bar->setValue(0);
    busy = true;
    button->setText("Stop");
    summary->setText("Scanning...");
    emit startRequested(first, last, QString::fromStdString(probe.text()));
}

void ScanView::progress(int done, int total, int answering)
{
    bar->setRange(0, total);
    bar->setValue(done);
    summary->setText(QString("%1 of %2 stations probed, %3 answering").arg(done).arg(total).arg(answering));
}

void ScanView::found(int station, bool answers, const QString &result)
{
    const int row = table->rowCount();
    table->insertRow(row);
    auto *s = new QTableWidgetItem(QString::number(station));
    s->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    table->setItem(row, 0, s);
    auto *r = new QTableWidgetItem(result);
    if (!answers)
        r->setForeground(QBrush(QColor(180, 0, 0)));
    table->setItem(row, 1, r);
}

void ScanView::finished(int answering, bool stopped, const QString &why)
{
    busy = false;
    button->setText("Start scan");
    button->setEnabled(connected);
    summary->setText(QString("%1: %2 station%3 answering%4")
                         .arg(stopped ? "Stopped" : "Done")
                         .arg(answering)
                         .arg(answering == 1 ? "" : "s")
                         .arg(why.isEmpty() ? QString() : " (" + why + ")"));
    if (!why.isEmpty())
        emit message("scan stopped: " + why);
}
