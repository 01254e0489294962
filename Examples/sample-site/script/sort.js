// Sorts the table of clouds by the column whose heading is chosen.
(function () {
  "use strict";

  var body = document.querySelector("#clouds tbody");
  var headings = document.querySelectorAll("#clouds th");

  function compare(column) {
    return function (a, b) {
      var left = a.cells[column].textContent;
      var right = b.cells[column].textContent;
      return left.localeCompare(right, "en", { numeric: true });
    };
  }

  headings.forEach(function (heading, column) {
    heading.classList.add("sortable");
    heading.addEventListener("click", function () {
      headings.forEach(function (other) {
        other.removeAttribute("aria-sort");
      });
      heading.setAttribute("aria-sort", "ascending");
      Array.from(body.rows)
        .sort(compare(column))
        .forEach(function (row) {
          body.appendChild(row);
        });
    });
  });
})();
