#ifndef HOST_MONITOR_PARAMVIEW_H
#define HOST_MONITOR_PARAMVIEW_H

// The Parameters tab: a backup of the drive's parameters to a file, a
// compare of the drive with a file, and a restore of a file (paramset.h).
// The worker does every read and write; this view asks for them, shows
// the results and, for a restore, the plan (name, drive value, file value,
// unit), writing only after the user agreed, then each read-back that does
// not hold.

#include "monitortypes.h"

#include <QWidget>

#include <memory>

class QLabel;
class QPushButton;
class QTableWidget;

class ParamView : public QWidget
{
    Q_OBJECT
public:
    explicit ParamView(QWidget *parent = nullptr);

    // The map a backup reads (the window's); nullptr: none.
    void setMap(std::shared_ptr<const ParameterMap> map);
    void setConnected(bool connected);
    // Starts a job with the file at path; false with the reason as a message.
    bool backup(const QString &path);
    bool compare(const QString &path);
    bool restore(const QString &path);
    bool busy() const { return running; }
    QTableWidget *results() const { return table; }
    QString summary() const;

public slots:
    void paramsRead(const ParamJob &job);
    void paramsRestored(const ParamJob &job);

signals:
    void readRequested(const ParamJob &job);
    void restoreRequested(const ParamJob &job);
    void message(const QString &text);

private:
    bool start(ParamJob::Kind kind, const QString &path);
    void choose(ParamJob::Kind kind);
    void finishBackup(const ParamJob &job);
    void showDifferences(const ParamJob &job);
    void askRestore(const ParamJob &job);
    void showRows(const QStringList &heading, const QVector<QStringList> &rows, const QString &summary);
    void setRunning(bool on);
    void say(const QString &text);

    std::shared_ptr<const ParameterMap> map;
    bool connected = false;
    bool running = false;
    int connection = 0; // counts the connections opened and closed: a plan holds for one
    QPushButton *backupButton, *compareButton, *restoreButton;
    QTableWidget *table;
    QLabel *summaryLabel;
};

#endif // HOST_MONITOR_PARAMVIEW_H
