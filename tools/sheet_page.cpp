#include "sheet_page.h"

#include <glib.h>

#include <cstdio>
#include <tuple>
#include <utility>

#include "report.h"
#include "sheet_style.h"
#include "util/release.h"

namespace {

using Text = CZELHandle<char, g_free>;

// Any bytes as text between or within tags: what is not UTF-8 is replaced.
std::string Html(std::string text) {
    text = Printable(std::move(text), '\xFF');
    const Text valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    const Text escaped(g_markup_escape_text(valid.get(), -1));
    return escaped.get();
}

std::string Percent(double share) {
    char text[32];
    std::ignore = std::snprintf(text, sizeof text, "%.2f", share);  // it fits
    return text;
}

// Neighbours differ, however many there are.
std::string Hue(std::size_t device) { return std::to_string((210 + device * 137) % 360); }

std::string Anchor(std::size_t device) { return "device-" + std::to_string(device + 1); }

std::string Facts(std::size_t thumbnails, std::uintmax_t bytes) {
    return CountText(thumbnails, "thumbnail") + " \u00B7 " + SizeText(bytes);
}

void AppendImage(const SheetImage& image, std::string& page) {
    const std::string name = Html(image.file.substr(image.file.rfind('/') + 1));
    const std::string width = std::to_string(image.size.width);
    const std::string height = std::to_string(image.size.height);
    const bool is_shown = !image.source.empty();
    page += is_shown ? "<figure title=\"" : "<figure class=\"absent\" title=\"";
    page += Html(image.file) + "\"><div class=\"frame\">";
    page += is_shown
                ? "<img loading=\"lazy\" decoding=\"async\" src=\"" + image.source + "\" width=\"" +
                      width + "\" height=\"" + height + "\" alt=\"" + name + "\">"
                : Html(image.trouble);
    page += "</div><figcaption><span class=\"name\">" + name + "</span><span class=\"facts\">";
    page += is_shown ? width + " \u00D7 " + height + " \u00B7 " : "recorded ";
    page += SizeText(image.bytes) + "</span></figcaption></figure>\n";
}

void AppendDevice(const SheetDevice& device, std::size_t number, std::string& page) {
    page += "<section id=\"" + Anchor(number) +
            "\"><header><span class=\"dot\" style=\"--hue:" + Hue(number) + "\"></span><h2>" +
            Html(device.id) + "</h2><span class=\"kind\">" + Html(device.kind) +
            "</span><span class=\"facts\">" + Facts(device.images.size(), device.bytes) +
            "</span><span class=\"path\">" + Html(device.path) +
            "</span></header>\n<div class=\"grid\">\n";
    for (const SheetImage& image : device.images) {
        AppendImage(image, page);
    }
    page += "</div></section>\n";
}

void AppendFact(const std::string& value, const std::string& what, std::string& page) {
    page += "<div><dt>" + what + "</dt><dd>" + value + "</dd></div>";
}

void AppendSummary(const std::vector<SheetDevice>& devices, std::string& page) {
    std::size_t thumbnails = 0;
    std::uintmax_t bytes = 0;
    std::string parts;
    std::string links;
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const SheetDevice& device = devices[i];
        thumbnails += device.images.size();
        bytes += device.bytes;
        parts += "<i style=\"--hue:" + Hue(i) + ";width:" + Percent(ShareOfCache(device.bytes)) +
                 "%\"></i>";
        links += "<a href=\"#" + Anchor(i) + "\"><span class=\"dot\" style=\"--hue:" + Hue(i) +
                 "\"></span>" + Html(device.id) + "<span class=\"facts\">" +
                 Facts(device.images.size(), device.bytes) + "</span></a>";
    }
    const std::string share = Percent(ShareOfCache(bytes)) + " %";
    page += "<dl>";
    AppendFact(std::to_string(thumbnails), thumbnails == 1 ? "thumbnail" : "thumbnails", page);
    AppendFact(std::to_string(devices.size()), devices.size() == 1 ? "device" : "devices", page);
    AppendFact(SizeText(bytes), "of " + SizeText(kCacheCeiling), page);
    AppendFact(share, "full", page);
    page += "</dl>\n<div class=\"bar\" role=\"img\" aria-label=\"" + share + " full\">" + parts +
            "</div>\n<nav>" + links + "</nav>\n";
}

}  // namespace

std::string RenderSheet(const std::string& index, const std::vector<SheetDevice>& devices) {
    // Nothing in it runs, and nothing but images is fetched.
    std::string page =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "img-src 'self' file: data:; style-src 'unsafe-inline'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width\">\n"
        "<link rel=\"icon\" href=\"data:,\">\n<title>Thumbnails in ";
    page += Html(index) + "</title>\n<style>" + kSheetStyle + "</style></head>\n<body>\n";
    page += "<h1>Thumbnail cache</h1>\n<p class=\"path\">" + Html(index) + "</p>\n";
    AppendSummary(devices, page);
    for (std::size_t i = 0; i < devices.size(); ++i) {
        AppendDevice(devices[i], i, page);
    }
    if (devices.empty()) {
        page += "<p class=\"empty\">The cache holds no thumbnails.</p>\n";
    }
    return page + "</body></html>\n";
}
