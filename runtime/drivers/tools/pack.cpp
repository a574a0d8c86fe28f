// The pack/unpack format language: one item parser, a packer into a caller's
// buffer (which the array packer reuses after sizing the array), and an
// unpacker.

#include "tools.h"

#include <cstring>

namespace {

// The largest number of bytes that one format may describe: the buffer
// engines return their counts as int, and both Qt generations can hold a
// QByteArray of this size.
const qint64 maxPackedSize = 0x7FFFFFFF - 64;

enum ItemStatus {
    ItemRead,
    ItemEnd, // the zero byte that ends the format
    ItemUnknown, // a character that is neither a digit nor a type
    ItemBadCount, // a count without a counted type after it, or 0 where that is an error
};

struct Item
{
    unsigned char type;
    bool counted;
    quint32 count;
    qint64 size; // bytes written, stepped over or consumed
};

bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

// Width in bytes of a single item, 0 for a character that is no type.
int singleWidth(unsigned char type)
{
    switch (type) {
    case 'c':
    case 'C':
    case 'x':
    case 'X':
        return 1;
    case 's':
    case 'S':
    case 'v':
    case 'n':
        return 2;
    case 'i':
    case 'I':
    case 'l':
    case 'L':
    case 'V':
    case 'N':
        return 4;
    default:
        return 0;
    }
}

// Width in bytes of one element of a counted item, 0 for a type without a
// counted form.
int countedWidth(unsigned char type)
{
    switch (type) {
    case 'c':
    case 'C':
    case 'x':
    case 'X':
        return 1;
    case 'v':
    case 'n':
        return 2;
    case 'V':
    case 'N':
        return 4;
    default:
        return 0;
    }
}

bool isSkip(unsigned char type) { return type == 'x' || type == 'X'; }

// Reads the item at format and moves format past it.
ItemStatus readItem(const char *&format, Item &item)
{
    const unsigned char first = static_cast<unsigned char>(*format);
    if (first == 0)
        return ItemEnd;
    if (!isDigit(first)) {
        const int width = singleWidth(first);
        if (width == 0)
            return ItemUnknown;
        item.type = first;
        item.counted = false;
        item.count = 1;
        item.size = width;
        ++format;
        return ItemRead;
    }
    // Accumulated in 32 bits, wrapping: 4294967298 counts 2.
    quint32 count = 0;
    while (isDigit(static_cast<unsigned char>(*format))) {
        count = count * 10u + (static_cast<unsigned char>(*format) - '0');
        ++format;
    }
    const unsigned char type = static_cast<unsigned char>(*format);
    const int width = countedWidth(type);
    if (width == 0 || (count == 0 && !isSkip(type)))
        return ItemBadCount;
    item.type = type;
    item.counted = true;
    item.count = count;
    item.size = static_cast<qint64>(count) * width;
    ++format;
    return ItemRead;
}

void putLittleEndian(unsigned char *out, quint32 value, int width)
{
    for (int i = 0; i < width; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

void putBigEndian(unsigned char *out, quint32 value, int width)
{
    for (int i = 0; i < width; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
}

quint32 getLittleEndian(const unsigned char *in, int width)
{
    quint32 value = 0;
    for (int i = width - 1; i >= 0; --i)
        value = (value << 8) | in[i];
    return value;
}

quint32 getBigEndian(const unsigned char *in, int width)
{
    quint32 value = 0;
    for (int i = 0; i < width; ++i)
        value = (value << 8) | in[i];
    return value;
}

// Copies size bytes, reversing the byte order of every group of width bytes
// (width 1 copies unchanged). The counted n and N items swap the same way in
// both directions.
void copyElements(unsigned char *out, const unsigned char *in, qint64 size, int width)
{
    if (width == 1) {
        std::memcpy(out, in, static_cast<size_t>(size));
        return;
    }
    for (qint64 at = 0; at < size; at += width) {
        for (int j = 0; j < width; ++j)
            out[at + j] = in[at + width - 1 - j];
    }
}

// Byte order of one element of a counted item as it travels: v and V are
// copied unchanged, n and N are swapped.
int swapWidth(unsigned char type)
{
    if (type == 'n')
        return 2;
    if (type == 'N')
        return 4;
    return 1;
}

// Packs one item at out; false when a counted item has a null pointer.
bool packItem(unsigned char *out, const Item &item, va_list *arguments)
{
    if (!item.counted) {
        switch (item.type) {
        case 'x':
            *out = 0;
            return true;
        case 'X':
            return true;
        case 'n':
        case 'N':
            putBigEndian(out, static_cast<quint32>(va_arg(*arguments, int)), static_cast<int>(item.size));
            return true;
        default:
            putLittleEndian(out, static_cast<quint32>(va_arg(*arguments, int)), static_cast<int>(item.size));
            return true;
        }
    }
    if (item.type == 'x') {
        std::memset(out, 0, static_cast<size_t>(item.size));
        return true;
    }
    if (item.type == 'X')
        return true;
    const void *from = va_arg(*arguments, const void *);
    if (!from)
        return false;
    copyElements(out, static_cast<const unsigned char *>(from), item.size, swapWidth(item.type));
    return true;
}

// Unpacks one item from in; false when the item has a null pointer.
bool unpackItem(const unsigned char *in, const Item &item, va_list *arguments)
{
    if (isSkip(item.type))
        return true;
    void *to = va_arg(*arguments, void *);
    if (!to)
        return false;
    if (item.counted) {
        copyElements(static_cast<unsigned char *>(to), in, item.size, swapWidth(item.type));
        return true;
    }
    const int width = static_cast<int>(item.size);
    const quint32 value
        = (item.type == 'n' || item.type == 'N') ? getBigEndian(in, width) : getLittleEndian(in, width);
    if (width == 1) {
        const quint8 narrow = static_cast<quint8>(value);
        std::memcpy(to, &narrow, sizeof narrow);
    } else if (width == 2) {
        const quint16 narrow = static_cast<quint16>(value);
        std::memcpy(to, &narrow, sizeof narrow);
    } else {
        std::memcpy(to, &value, sizeof value);
    }
    return true;
}

int packInto(unsigned char *buffer, const char *format, va_list *arguments)
{
    if (!format || !*format)
        return 0;
    if (!buffer)
        return -1;
    qint64 position = 0;
    Item item;
    for (;;) {
        switch (readItem(format, item)) {
        case ItemEnd:
            return static_cast<int>(position);
        case ItemUnknown:
            return 0;
        case ItemBadCount:
            return -1;
        case ItemRead:
            break;
        }
        if (position + item.size > maxPackedSize || !packItem(buffer + position, item, arguments))
            return -1;
        position += item.size;
    }
}

int unpackFrom(const unsigned char *buffer, const char *format, va_list *arguments)
{
    if (!format || !*format)
        return 0;
    if (!buffer)
        return -1;
    qint64 position = 0;
    Item item;
    for (;;) {
        const ItemStatus status = readItem(format, item);
        if (status == ItemEnd)
            return static_cast<int>(position);
        if (status != ItemRead || position + item.size > maxPackedSize
            || !unpackItem(buffer + position, item, arguments))
            return -1;
        position += item.size;
    }
}

// The size of what format packs into an array, or -1 when the array packer
// refuses the format. Takes no arguments.
qint64 arrayPackSize(const char *format)
{
    if (!format)
        return 0;
    qint64 total = 0;
    Item item;
    for (;;) {
        const ItemStatus status = readItem(format, item);
        if (status == ItemEnd)
            return total;
        if (status != ItemRead || (item.counted && isSkip(item.type)) || total + item.size > maxPackedSize)
            return -1;
        total += item.size;
    }
}

} // namespace

int DataPack(unsigned char *buffer, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int written = VDataPack(buffer, format, arguments);
    va_end(arguments);
    return written;
}

int VDataPack(unsigned char *buffer, const char *format, va_list arguments)
{
    va_list own;
    va_copy(own, arguments);
    const int written = packInto(buffer, format, &own);
    va_end(own);
    return written;
}

QByteArray ByteArrayPack(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const QByteArray packed = VByteArrayPack(format, arguments);
    va_end(arguments);
    return packed;
}

QByteArray VByteArrayPack(const char *format, va_list arguments)
{
    const qint64 size = arrayPackSize(format);
    if (size <= 0)
        return QByteArray();
    // Zero-filled, so that the byte a single "X" steps over is 0.
    QByteArray packed(static_cast<int>(size), '\0');
    if (VDataPack(reinterpret_cast<unsigned char *>(packed.data()), format, arguments) != size)
        return QByteArray();
    return packed;
}

int DataUnpack(const unsigned char *buffer, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int consumed = VDataUnpack(buffer, format, arguments);
    va_end(arguments);
    return consumed;
}

int VDataUnpack(const unsigned char *buffer, const char *format, va_list arguments)
{
    va_list own;
    va_copy(own, arguments);
    const int consumed = unpackFrom(buffer, format, &own);
    va_end(own);
    return consumed;
}
