#include "crypto/toolkit/TVXException.h"

TVXException::TVXException(QString name, QString description, QString file, QString method,
                           int line)
    : m_name(std::move(name)),
      m_description(std::move(description)),
      m_file(std::move(file)),
      m_method(std::move(method)),
      m_line(line),
      m_what(m_description.toStdString()) {}
