#include <vqutil/VQException.h>

#include "vqutil/TextForm.h"

#include <utility>

VQException::VQException(std::string exceptionText) : text(std::move(exceptionText)) {}

VQException::~VQException() = default;

const char* VQException::what() const noexcept
{
    return text.c_str();
}

std::ostream& operator<<(std::ostream& stream, const VQException& exception)
{
    return vqhost::writeText(stream, exception.what());
}

BufferMismatchException::BufferMismatchException(std::string exceptionText) : VQException(std::move(exceptionText))
{
}

BufferMismatchException::~BufferMismatchException() = default;
