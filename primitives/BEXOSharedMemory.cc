#include "BEXOSharedMemory.h"

#include "primitives/BEXOSharedMemoryImpl.h"

BEXOSharedMemory::BEXOSharedMemory(const char* name, unsigned int size, bool unlinkOnDestroy)
    : impl_(new BEXOSharedMemoryImpl(name, size, unlinkOnDestroy)) {}

BEXOSharedMemory::~BEXOSharedMemory() { delete impl_; }

void* BEXOSharedMemory::getAddr() { return impl_->getAddr(); }
