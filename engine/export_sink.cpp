#include "export_sink.h"

#include "engine_error.h"
#include "file_sink.h"
#include "http_sink.h"

namespace corvo::engine {

std::unique_ptr<ExportSink> make_sink(const api::ExporterConfig& config, Payload payload) {
    switch (config.type) {
        case api::EXPORTER_HTTP:
        case api::EXPORTER_HTTPS:
            return std::make_unique<HttpSink>(config, payload);
        case api::EXPORTER_FILE:
            return std::make_unique<FileSink>(config.path);
        case api::EXPORTER_NONE:
            return nullptr;
        case api::EXPORTER_KILN_CLOUD:
            throw Error("this engine can't export to 'kiln-cloud', expecting http, https, file or none");
    }
    throw Error("there is no exporter of type " + std::to_string(config.type));
}

}  // namespace corvo::engine
