#include "processing/FileDetails.h"

#include "platform/PathText.h"

QString FileDetails::getFilename() const {
    return PathText::lastComponent(filePath);
}

QString FileDetails::getFolder() const {
    return PathText::withoutLastComponent(filePath);
}
