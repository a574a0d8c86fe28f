#ifndef HOST_MONITOR_SCANVIEW_H
#define HOST_MONITOR_SCANVIEW_H

// Finding the stations on the line: one read of a probe address per
// station, as teco-cli's scan does, with progress and the stations heard.

#include <QWidget>

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QTableWidget;

class ScanView : public QWidget
{
    Q_OBJECT
public:
    explicit ScanView(QWidget *parent = nullptr);
    QTableWidget *results() const { return table; }
    bool running() const { return busy; }
    QString summaryText() const;

public slots:
    // Checks the range and address as teco-cli does, then asks for the scan.
    void start();
    void progress(int done, int total, int answering);
    void found(int station, bool answers, const QString &result);
    // why: what ended it early, other than the user.
    void finished(int answering, bool stopped, const QString &why = QString());
    void setConnected(bool connected);

signals:
    void startRequested(int from, int to, const QString &address);
    void stopRequested();
    void message(const QString &text);

private:
    QSpinBox *from, *to;
    QLineEdit *address;
    QPushButton *button;
    QProgressBar *bar;
    QLabel *summary;
    QTableWidget *table;
    bool busy = false;
    bool connected = false;
};

#endif // HOST_MONITOR_SCANVIEW_H
