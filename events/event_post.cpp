// SPDX-License-Identifier: Apache-2.0
// One Redfish event post to a subscriber, made with libcurl: the request the
// BMC's alert daemons have always sent with the curl program (POST, JSON
// headers, the subscriber's token, the cookie jar "cjar" in the working
// directory, certificate checks off, 5 s in all), without a shell between
// the texts of other processes and the command line.
#include "events/event_body.h"
#include "events/event_records.h"

#include <libkv/events.h>
#include <libkv/fru.h>

#include <curl/curl.h>

#include <memory>
#include <string>

namespace
{

constexpr long kTimeoutSeconds = 5;
constexpr const char* kCookieJar = "cjar";

struct EasyCleanup
{
    void operator()(CURL* easy) const
    {
        curl_easy_cleanup(easy);
    }
};
using Easy = std::unique_ptr<CURL, EasyCleanup>;

struct ListFree
{
    void operator()(curl_slist* list) const
    {
        curl_slist_free_all(list);
    }
};
using HeaderList = std::unique_ptr<curl_slist, ListFree>;

// The subscriber's answer is not used; the curl program printed it on the
// caller's standard output, where it only cluttered the daemon's log.
size_t discard_answer(char*, size_t size, size_t count, void*)
{
    return size * count;
}

// "X-Auth-Token:<token>", the token ending at its field's end or at the
// first line break, so that a token cannot add header lines of its own.
std::string token_header(const EventSubscription& sub)
{
    const std::string_view token = kv::detail::fixed_text(sub.token);
    return "X-Auth-Token:" +
           std::string(token.substr(0, token.find_first_of("\r\n")));
}

// The system() status the curl program's exit would have given: 0, or the
// transfer's error code in the second byte.
int exit_status(CURLcode code)
{
    return static_cast<int>(code) << 8;
}

CURLcode post(const std::string& url, const std::string& token,
              const std::string& body)
{
    // Once per process, before the first handle; thread-safe as a static.
    static const CURLcode global = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (global != CURLE_OK)
    {
        return global;
    }
    // The header list outlives the handle that points at it.
    HeaderList headers(
        curl_slist_append(nullptr, "Content-Type:application/json"));
    curl_slist* const all =
        headers ? curl_slist_append(headers.get(), token.c_str()) : nullptr;
    if (all == nullptr)
    {
        return CURLE_OUT_OF_MEMORY;
    }
    const Easy easy(curl_easy_init());
    if (!easy)
    {
        return CURLE_FAILED_INIT;
    }
    CURL* const c = easy.get();
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, all);
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(c, CURLOPT_COOKIEFILE, kCookieJar);
    curl_easy_setopt(c, CURLOPT_COOKIEJAR, kCookieJar);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT, kTimeoutSeconds);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, discard_answer);
    // The cookie jar is written when the handle is cleaned up, before the
    // caller gets the result.
    return curl_easy_perform(c);
}

} // namespace

extern "C" int send_curl_message(EventSubscription* sub, const char* message,
                                 EventInfo* info)
{
    // -1 is what system() answers when it cannot run a command at all.
    if (sub == nullptr || info == nullptr)
    {
        return -1;
    }
    char types[128] = {};
    eventtypeToStr(sub->event_types, types);
    uint32_t code = 0;
    char problem[128] = {};
    getspecificProblem(message, &code, problem);
    getUIDandAssetTag(info->element_uid, sizeof info->element_uid,
                      info->element_name, sizeof info->element_name);

    const kv::detail::EventPost event{
        .event_types = types,
        .message = message != nullptr ? message : "",
        .problem_code = code,
        .problem = problem,
    };
    return exit_status(post(std::string(kv::detail::fixed_text(sub->url)),
                            token_header(*sub),
                            kv::detail::event_body(event, *info)));
}
