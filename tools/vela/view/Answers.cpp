#include "view/Answers.h"

#include <array>
#include <exception>
#include <functional>
#include <new>
#include <optional>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Json.h"
#include "view/PageFiles.h"
#include "view/Questions.h"

namespace command::viewer {

namespace {

HttpResponse pageFile(const std::string& path) {
  for (const PageFile& file : pageFiles())
    if (path == file.path) {
      HttpResponse response;
      response.type = file.type;
      response.body.assign(file.bytes, file.size);
      return response;
    }
  return refuse(404, "there is no such page");
}

}  // namespace

HttpResponse Answers::answer(const HttpRequest& request) const {
  try {
    std::string path;
    if (auto refused = access_.check(request, path)) return *std::move(refused);
    if (request.method == "POST") return answerPost(path, request.body);
    return pageFile(path == "/" ? "/index.html" : path);
  } catch (const BadAsk& why) {
    return refuse(400, why.what());
  } catch (const Failure& why) {
    return refuse(422, describe(why));
  } catch (const Interrupted&) {
    return refuse(503, "vela view has ended");
  } catch (const std::bad_alloc&) {
    return refuse(507, "out of memory");
  } catch (const std::exception& why) {
    return refuse(400, why.what());
  }
}

HttpResponse Answers::answerPost(const std::string& path, const std::string& body) const {
  const Question* const question = findQuestion(path);
  if (!question) return refuse(404, "there is no such question");
  const auto use = path == "/reload" ? std::shared_lock<std::shared_mutex>() : session_.use();
  return (*question)({session_, pictures_}, body);
}

}  // namespace command::viewer
