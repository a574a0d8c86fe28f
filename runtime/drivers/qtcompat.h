#ifndef QTCOMPAT_H
#define QTCOMPAT_H

// The one place that knows which Qt generation we are built against. Panels
// build with Qt 4.8 (qmake), PCs with Qt 5 (CMake); everything else in the
// tree is written against the API that both share.

#include <QtGlobal>
#include <QByteArray>
#include <QString>

#if QT_VERSION >= 0x050000
#define QTCOMPAT_QT5 1
#else
#define QTCOMPAT_QT5 0
#endif

namespace QtCompat {

// 8-bit form of a text; characters outside Latin-1 become '?'.
inline QByteArray toAscii(const QString &text)
{
#if QTCOMPAT_QT5
    return text.toLatin1();
#else
    return text.toAscii();
#endif
}

// A message handler with the Qt 4 signature. Tests use it to capture debug
// lines byte for byte under both generations.
typedef void (*MessageHandler)(QtMsgType type, const char *message);

#if QTCOMPAT_QT5
namespace Detail {
inline MessageHandler &currentHandler()
{
    static MessageHandler handler = nullptr;
    return handler;
}
inline void forward(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (MessageHandler handler = currentHandler())
        handler(type, message.toLocal8Bit().constData());
}
} // namespace Detail
#endif

// Installs handler (nullptr restores Qt's default) and returns the previous
// one installed through this function, or nullptr.
inline MessageHandler installMessageHandler(MessageHandler handler)
{
#if QTCOMPAT_QT5
    MessageHandler previous = Detail::currentHandler();
    Detail::currentHandler() = handler;
    qInstallMessageHandler(handler ? &Detail::forward : nullptr);
    return previous;
#else
    return qInstallMsgHandler(handler);
#endif
}

} // namespace QtCompat

// The plug-in metadata, written inside the plug-in class after Q_OBJECT:
// Q_PLUGIN_METADATA with the interface identifier under Qt 5; nothing under
// Qt 4, whose export below carries no metadata. moc takes the identifier only
// as a string literal, so iidLiteral is a literal or a macro that expands to
// one (DRIVER_INTERFACE_IID).
#if QTCOMPAT_QT5
#define DRIVERS_PLUGIN_METADATA(iidLiteral) Q_PLUGIN_METADATA(IID iidLiteral)
#else
#define DRIVERS_PLUGIN_METADATA(iidLiteral)
#endif

// Plug-in export. Qt 4 generates qt_plugin_instance and the verification
// text itself. Under Qt 5, moc generates qt_plugin_instance from the class's
// Q_PLUGIN_METADATA, and the verification entry point is written here so that
// the library offers the same three entry points under both generations.
#if QTCOMPAT_QT5

#if defined(__aarch64__)
#define QTCOMPAT_BUILDKEY_ARCH "arm64"
#elif defined(__arm__)
#define QTCOMPAT_BUILDKEY_ARCH "arm"
#elif defined(__x86_64__)
#define QTCOMPAT_BUILDKEY_ARCH "x86_64"
#elif defined(__i386__)
#define QTCOMPAT_BUILDKEY_ARCH "i386"
#else
#define QTCOMPAT_BUILDKEY_ARCH "unknown"
#endif

#ifdef QT_NO_DEBUG
#define QTCOMPAT_PLUGIN_DEBUG_STR "false"
#else
#define QTCOMPAT_PLUGIN_DEBUG_STR "true"
#endif

#define DRIVERS_EXPORT_PLUGIN(PLUGIN, PLUGINCLASS)                                                           \
    extern "C" Q_DECL_EXPORT const char *qt_plugin_query_verification_data()                                 \
    {                                                                                                        \
        static const char data[] __attribute__((section(".qtplugin"), used))                                 \
        = "pattern=QT_PLUGIN_VERIFICATION_DATA\n"                                                            \
          "version=" QT_VERSION_STR "\n"                                                                     \
          "debug=" QTCOMPAT_PLUGIN_DEBUG_STR "\n"                                                            \
          "buildkey=" QTCOMPAT_BUILDKEY_ARCH " linux g++-4 full-config";                                     \
        return data;                                                                                         \
    }

#else

#include <QtPlugin>
#define DRIVERS_EXPORT_PLUGIN(PLUGIN, PLUGINCLASS) Q_EXPORT_PLUGIN2(PLUGIN, PLUGINCLASS)

#endif

#endif // QTCOMPAT_H
