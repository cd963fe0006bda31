// What the pages' scripts and their tests are checked for beyond types, which tsc checks.

const js = require("@eslint/js");

module.exports = [
  js.configs.recommended,
  {
    rules: {
      "no-undef": "off",  // tsc knows better what there is
      "eqeqeq": "error",
      "no-shadow": "error",
      "no-unused-vars": ["error", { ignoreRestSiblings: true }],
      "no-var": "error",
      "prefer-const": "error",
    },
  },
];
