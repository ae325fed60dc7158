#include "database/persistence/filterprogress.h"

FilterProgress::~FilterProgress() = default;

bool FilterProgressTrue::operator()(int /*current*/, int /*total*/)
{
    return true;
}

bool FilterProgressTrue::filter(const Record & /*record*/) const
{
    return true;
}
