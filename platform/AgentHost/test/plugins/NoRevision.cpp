extern "C" void* agentFactory(const char* /*name*/) {
    return nullptr;
}
