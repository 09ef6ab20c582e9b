-- Every custom category URL with the identifier of its category.
SELECT list_id AS ListID, url AS CustomCategoryURL FROM tb_custom_category_url ORDER BY list_id, url
