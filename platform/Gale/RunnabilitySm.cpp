#include "platform/Gale/RunnabilitySm.h"

#include "platform/Blink/Trace.h"
#include "platform/Gale/Channel.h"
#include "platform/Gale/GnmiService.h"
#include "platform/Gale/Provider.h"
#include "platform/Gale/StampClock.h"
#include "platform/Gale/StatusRequests.h"
#include "platform/Gale/View.h"
#include "platform/Gale/Wire/Server.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Mesa/EntityManager.h"
#include "platform/Vel/Assert.h"

#include <utility>

#include <fmt/format.h>

BLINK_TRACE_HANDLE("GaleRunnabilitySm");

namespace Gale {

namespace {

constexpr Kiln::Duration kRetry = std::chrono::seconds(5);
constexpr Kiln::TaskPriority kRetryPriority = 5;
constexpr Kiln::TaskPriority kNotifyPriority = 3;
constexpr const char* kServerEntity = "server";

bool isLoopback(const std::string& address) {
    return address.starts_with("127.") || address == "::1";
}

ViewInputs viewInputs(Vel::Ref<Vel::Dir> root,
                      const Vel::Ref<Hubdb::EntityManager>& entityManager,
                      const std::vector<ExtraProvider>& extraProviders) {
    ViewInputs inputs;
    inputs.root = std::move(root);
    inputs.mounted = [entityManager](std::string_view path) {
        return entityManager->entity(entityManager->cellPath(path));
    };
    inputs.defaultInstance = hostConfig().defaultInstance;
    for (const ExtraProvider& extra : extraProviders) {
        const Vel::Ref<TableProvider> provider = extra.make();
        if (!provider || !provider->tables()) {
            TRACE5("provider {} has no tables", extra.name);
            continue;
        }
        inputs.tables = provider->tables();
        for (std::string& prefix : provider->tablePrefixes()) {
            inputs.tablePrefixes.push_back(std::move(prefix));
        }
    }
    return inputs;
}

ViewStatus viewStatus(const Channel& channel) {
    ViewStatus status;
    status.origin = channel.origin;
    if (channel.lazyFill) { status.demand = channel.lazyFill->text(); }
    if (channel.provider) {
        status.provider = channel.provider->statistics();
        status.held = channel.provider->held(ServiceStatus::kHeld);
    }
    status.journal = channel.journal.statistics();
    status.provider.shown.resize(channel.view->kinds().size());
    for (std::size_t i = 0; i < status.provider.shown.size(); ++i) {
        status.kinds.push_back({channel.view->kinds()[i].path, status.provider.shown[i]});
    }
    return status;
}

}  // namespace

class RunnabilitySm::Impl {
public:
    Impl(Vel::Ref<Vel::Dir> runnabilityDir,
         const Vel::Ref<Hubdb::EntityManager>& entityManager,
         ServerConfig serverConfig,
         const std::optional<CustomProviderConfig>& customProviderConfig,
         const std::vector<ExtraProvider>& extraProviders,
         Vel::Ref<Vel::Sm> cmdRequestDirSm,
         Vel::Ref<Kiln::TaskScheduler> scheduler);
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() { stop(); }

    void start();
    void stop();
    void status(StatusAnswer answer);

    bool running = false;
    std::string error;
    std::uint16_t port() const { return running ? server_->port() : std::uint16_t{0}; }

private:
    std::unique_ptr<Provider> makeProvider(Channel& channel, std::function<void()> onFilled);
    ServiceStatus serviceStatus(std::optional<StreamsStatus> streams) const;
    std::string where() const {
        return fmt::format("{} port {}", config_.wire.address, config_.wire.port);
    }

    const HostConfig config_;
    const ServerConfig serverConfig_;
    const Vel::Ref<Vel::Dir> runnabilityDir_;
    const Vel::Ref<Vel::Sm> cmdRequestDirSm_;
    const Vel::Ref<Kiln::TaskScheduler> scheduler_;
    StampClock stamps_;
    std::vector<std::unique_ptr<Channel>> channels_;  // outlive the server: its cursors
    std::unique_ptr<GnmiService> service_;
    std::unique_ptr<Wire::Server> server_;
    Vel::Ref<Kiln::TaskGroup> group_;
    Kiln::Task retryTask_;
    StatusRequests statusRequests_;
};

RunnabilitySm::Impl::Impl(Vel::Ref<Vel::Dir> runnabilityDir,
                          const Vel::Ref<Hubdb::EntityManager>& entityManager,
                          ServerConfig serverConfig,
                          const std::optional<CustomProviderConfig>& customProviderConfig,
                          const std::vector<ExtraProvider>& extraProviders,
                          Vel::Ref<Vel::Sm> cmdRequestDirSm,
                          Vel::Ref<Kiln::TaskScheduler> scheduler)
    : config_(hostConfig()),
      serverConfig_(std::move(serverConfig)),
      runnabilityDir_(std::move(runnabilityDir)),
      cmdRequestDirSm_(std::move(cmdRequestDirSm)),
      scheduler_(std::move(scheduler)),
      stamps_(scheduler_->clock(), config_.stampFile),
      retryTask_(scheduler_,
                 "GaleRetryTask",
                 kRetryPriority,
                 [this] {
                     start();
                     return false;
                 }),
      statusRequests_(
          scheduler_,
          [this](StatusRequests::Told told) {
              server_->post([this, told = std::move(told)] {
                  const Subscribers& calls = service_->subscribers();
                  told({server_->status(), calls.status(), calls.refused, calls.terminated});
              });
          },
          [this](auto streams) { return serviceStatus(std::move(streams)); }) {
    const auto outputs = entityManager->globalDir()->entity<Vel::Dir>(entityManager->name());
    const auto root =
        outputs ? outputs->entity<Vel::Dir>(serverConfig_.rootName) : Vel::Ref<Vel::Dir>{};
    VEL_ASSERT_TEXT(static_cast<bool>(root), "the streamed tree is there");
    const ViewInputs inputs = viewInputs(root, entityManager, extraProviders);
    for (const auto& [origin, factory] : views()) {
        channels_.push_back(std::make_unique<Channel>(
            origin, factory(inputs), [this] { service_->subscribers().wake(); }));
    }
    server_ = std::make_unique<Wire::Server>(config_.wire, scheduler_->clock());
    service_ = std::make_unique<GnmiService>(
        scheduler_->clock(),
        stamps_,
        channels_,
        config_.limits,
        [this](std::function<void()> work) { server_->post(std::move(work)); });
    service_->addTo(server_->router());
    // Last: what they put into the journals wakes the service.
    if (customProviderConfig) { group_ = customProviderConfig->notifyTaskGroup; }
    if (!group_) { group_ = scheduler_->taskGroupIs("GaleNotify", kNotifyPriority, 0); }
    for (const auto& channel : channels_) {
        if (channel->view->lazy()) {
            LazyFill::Options options;
            options.makeProvider = [this, &view = *channel](std::function<void()> onFilled) {
                return makeProvider(view, std::move(onFilled));
            };
            options.toIoThread = [this](std::function<void()> work) {
                server_->post(std::move(work));
            };
            options.linger = config_.demandLinger;
            channel->lazyFill = LazyFill::make(*channel, std::move(options), scheduler_, group_);
        } else {
            channel->provider = makeProvider(*channel, {});
        }
    }
}

std::unique_ptr<Provider> RunnabilitySm::Impl::makeProvider(Channel& channel,
                                                            std::function<void()> onFilled) {
    return std::make_unique<Provider>(*channel.view,
                                      channel.journal,
                                      stamps_,
                                      scheduler_,
                                      group_,
                                      config_.referenceWait,
                                      std::move(onFilled));
}

void RunnabilitySm::Impl::start() {
    if (!isLoopback(config_.wire.address) && !config_.clearTextOnAnyAddress) {
        error = where() +
                ": clear text is served on loopback addresses only, unless the host's "
                "configuration allows it on any address";
        TRACE5("{}", error);
        return;
    }
    if (auto failure = server_->listen()) {
        error = std::move(*failure);
        TRACE5("agent {} cannot serve: {}; trying again in 5 s", serverConfig_.agentName, error);
        retryTask_.scheduleAfter(kRetry);
        return;
    }
    error.clear();
    server_->start();
    running = true;
    TRACE7("agent {} serves {} on {}", serverConfig_.agentName, serverConfig_.rootName, where());
    if (runnabilityDir_) { runnabilityDir_->insert(Vel::make<Vel::Entity>(kServerEntity)); }
}

void RunnabilitySm::Impl::stop() {
    retryTask_.unschedule();
    if (running) {
        server_->stop(config_.stopGrace);
        running = false;
        error = "stopped";
        if (runnabilityDir_) { runnabilityDir_->entityDel(kServerEntity); }
    }
    statusRequests_.answerAll(std::nullopt);
    // In this order: calls hold cursors, journals wake the service, providers write the journals.
    for (const auto& channel : channels_) {
        channel->lazyFill.reset();
        channel->provider.reset();
    }
    server_.reset();
    channels_.clear();
    service_.reset();
}

ServiceStatus RunnabilitySm::Impl::serviceStatus(std::optional<StreamsStatus> streams) const {
    ServiceStatus status{running, error, config_.wire.address, port(), {}, std::move(streams)};
    for (const auto& channel : channels_) { status.views.push_back(viewStatus(*channel)); }
    return status;
}

void RunnabilitySm::Impl::status(StatusAnswer answer) {
    if (running) {
        statusRequests_.add(std::move(answer));
    } else {
        answer(serviceStatus(std::nullopt));
    }
}

RunnabilitySm::RunnabilitySm(Vel::Ref<Vel::Dir> runnabilityDir,
                             const Vel::Ref<Hubdb::EntityManager>& entityManager,
                             ServerConfig serverConfig,
                             const std::optional<CustomProviderConfig>& customProviderConfig,
                             const std::vector<ExtraProvider>& extraProviders,
                             Vel::Ref<Vel::Sm> cmdRequestDirSm,
                             Vel::Ref<Kiln::TaskScheduler> scheduler)
    : impl_(std::make_unique<Impl>(std::move(runnabilityDir),
                                   entityManager,
                                   std::move(serverConfig),
                                   customProviderConfig,
                                   extraProviders,
                                   std::move(cmdRequestDirSm),
                                   std::move(scheduler))) {
    handleInitialized();
}

RunnabilitySm::~RunnabilitySm() = default;

void RunnabilitySm::handleInitialized() {
    TRACE9("");
    impl_->start();
}

void RunnabilitySm::handleCleanup() {
    TRACE9("");
    impl_->stop();
}

bool RunnabilitySm::running() const {
    return impl_->running;
}
std::uint16_t RunnabilitySm::port() const {
    return impl_->port();
}
const std::string& RunnabilitySm::error() const {
    return impl_->error;
}
void RunnabilitySm::status(StatusAnswer answer) {
    impl_->status(std::move(answer));
}

}  // namespace Gale
