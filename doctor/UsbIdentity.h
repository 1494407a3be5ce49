#pragma once
// What the kernel knows of a USB serial adapter: the numbers that udev rules match on, and
// the maker's names and serial number as the adapter reports them.
#include <QString>

struct UsbIdentity {
    QString vendorId;  // "0403"
    QString productId; // "6001"
    QString manufacturer;
    QString product;
    QString serial;
};
