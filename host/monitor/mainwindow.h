#ifndef HOST_MONITOR_MAINWINDOW_H
#define HOST_MONITOR_MAINWINDOW_H

// teco-monitor's window: the connection and the tag table on the left;
// trends, the frame trace, the station scan and the parameters on the
// right. A map (File > Open map..., --map) names the tags; without one, the
// simulated drive's own map does while the window talks to it. The worker
// that owns the line runs on its own thread; the window only sends it
// requests and shows what it reports.

#include "monitortypes.h"
#include "pollstats.h"
#include "stationbackoff.h"
#include "tagmodel.h"
#include "traffic.h"

#include <QMainWindow>
#include <QThread>

#include <memory>

class MonitorWorker;
class ParamView;
class QCheckBox;
class TrafficListener;
class QComboBox;
class QGridLayout;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTabWidget;
class QTableView;
class QTimer;
class ScanView;
class TrafficView;
class TrendView;

class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    // Loads the driver plug-in at pluginPath and, once it is loaded,
    // connects to the simulated drive.
    explicit MainWindow(const QString &pluginPath, QWidget *parent = nullptr);
    ~MainWindow() override;

    TagModel *tags() const { return tagModel; }
    QTableView *tagView() const { return tagTable; }
    TrendView *trends() const { return trendView; }
    TrafficView *traffic() const { return trafficView; }
    ScanView *scanner() const { return scanView; }
    ParamView *parameters() const { return paramView; }
    QTabWidget *tabs() const { return tabWidget; }
    bool isConnected() const { return connected; }
    // The statistics in the status bar, and the last message shown there.
    QString statusText() const;
    QString messageText() const;
    // The port box: what it holds ("" for the simulated drive), and setting
    // it to a listed port or a path typed.
    QString chosenPort() const;
    void setPort(const QString &path);

    // Adds a tag from the text typed in the tag line; false with the
    // message shown in the status bar.
    bool addTagLine(const QString &line);
    bool loadTags(const QString &path, QString &error);
    bool saveTags(const QString &path, QString &error);
    // The port list: the simulated drive, then the serial ports found.
    QStringList portChoices() const;
    // Faults the simulated drive starts with (the Sim faults field).
    void setSimFaults(const QStringList &rules);
    // The simulated drive's map file; empty: the built-in map.
    void setSimMap(const QString &path);
    // Reads the map that names tags from now on, whatever the port; false
    // with one sentence in error (the map in use stays).
    bool openMap(const QString &path, QString &error);
    // What the map in use is ("" for none), as the window names it.
    QString mapText() const;

public slots:
    void connectLine();
    void disconnectLine();
    void showMessage(const QString &text);
    // Shows what a write typed in a value cell will send, and sends it only
    // when the user agrees.
    void confirmWrite(const PendingWrite &write);

signals:
    void driverReady(bool ok, const QString &error);
    void connectionChanged(bool connected, const QString &message);
    void connectFailed(const QString &message);
    void readingShown(const Reading &reading);
    void writeFinished(int id, bool ok, const QString &error);
    void faultAnswered(bool ok, const QString &message);

    // To the worker.
    void requestLoad(const QString &plugin);
    void requestOpen(const ConnectSettings &settings);
    void requestClose();
    void requestTags(const QVector<PollTag> &tags);
    void requestPolling(bool on, int intervalMs);
    void requestMergeGap(int gap);
    void requestWrite(const PollTag &tag, const QVector<uint> &values);
    void requestScan(int from, int to, const QString &address);
    void requestStopScan();
    void requestFault(const QString &rule);

private:
    QWidget *makeConnectionPanel();
    void makeLineFields();
    QHBoxLayout *makeSimFields(); // the map's row
    void layOutConnection(QGridLayout *grid, QPushButton *rescan, QHBoxLayout *mapRow);
    void makePollFields(QGridLayout *grid);
    QWidget *makeTagPanel();
    QHBoxLayout *makeAddRow();
    void makeTagTable();
    QHBoxLayout *makeTagButtons();
    void makeStatusBar();
    void makeMenu();
    QWidget *makeMapLabel();
    // The map for the connection asked: the one opened, else the simulated
    // drive's while the port is the simulated drive, else none.
    void chooseMap();
    void useMap(std::shared_ptr<const ParameterMap> map, const QString &key, const QString &text);
    void chooseMapFile();
    // The queued connections between the window, its views and the worker.
    void connectWorker();
    void refreshPorts();
    void driverLoaded(bool ok, const QString &error, const DriverDefaults &defaults);
    void opened(bool ok, const QString &message);
    void closed();
    void applyReading(const Reading &reading);
    void sendTags();
    void sendPolling();
    void updateTrendTags();
    void updateStatus();
    int tableWidth() const;
    void chooseLoad();
    void chooseSave();
    void moveSelected(int step);
    void removeSelected();

    QThread thread;
    MonitorWorker *worker;
    bool driverOk = false;
    bool connected = false;
    bool connecting = false;
    // The drive behind the tags: port, link and station of the connection
    // asked for and of the last one that opened. Another one forgets every
    // value and trend sample.
    QString connectionAsked, connectionShown;

    // Connection panel.
    QComboBox *port;
    QLineEdit *linkText;
    QSpinBox *station, *timeout, *retry, *delay, *lateGuard;
    QLineEdit *simStations, *simFaults, *simMap;
    QPushButton *connectButton;
    QCheckBox *listenBox; // listen only: the traffic of a bus another master drives
    TrafficListener *listener;

    // Tags.
    TagModel *tagModel;
    QTableView *tagTable;
    QLineEdit *tagLine;
    QCheckBox *pollBox;
    QSpinBox *interval;

    QTabWidget *tabWidget;
    TrendView *trendView;
    TrafficView *trafficView;
    ScanView *scanView;
    ParamView *paramView;

    // The map in use: what it came from (a key) and how the window names it;
    // the path of the map opened, which holds whatever the port.
    std::shared_ptr<const ParameterMap> paramMap;
    QString mapKey, mapShown, mapOpened;
    QLabel *mapLabel;

    QLabel *messageLabel, *lineLabel, *statsLabel;
    QTimer *messageTimer;
    CycleStatus cycleStatus; // of the last poll cycle
    int connectedStation = 1; // the connection's station
    PollStats stats; // since the line was opened
    qint64 openedMs = 0;
};

#endif // HOST_MONITOR_MAINWINDOW_H
