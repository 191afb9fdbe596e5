// Below each result the search shows some lines of that page, which it fetches. Browsers let no page
// that is opened from disk fetch another one: there the list of results does without.
if (location.protocol === "file:") DOCUMENTATION_OPTIONS.SHOW_SEARCH_SUMMARY = false;
